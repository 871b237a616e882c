/* The platform's log service: one variadic function, callable from any thread and at any time. */
#ifndef TALLYLOG_H
#define TALLYLOG_H

#ifdef __cplusplus
extern "C"
{
#endif

    /*
     * Logs one message.
     *
     * level   1 is an error, 2 a warning, 9 a trace. A message above the threshold is dropped
     * before it is formatted. The threshold is $TALLYLOG_LEVEL at the first call, or else 2.
     * mask    the module that logs, as a bit set. For the service's own filters; not shown.
     * format  as for printf(3); not null. A final line break is optional.
     *
     * The message becomes one line on standard error. The level precedes it in the form of
     * sd-daemon(3), which the journal keeps. Line breaks and other control characters inside the
     * message become spaces. A line of more than PIPE_BUF bytes is cut and ends in an ellipsis, so
     * that other writers can't interrupt it.
     *
     * Returns the number of bytes written, 0 for a message above the threshold, -1 if the format
     * or the write failed. errno is unchanged, and "%m" in the format shows it. It is no
     * cancellation point.
     */
    __attribute__((format(printf, 3, 4), visibility("default"))) int
    tallylog_printf(int level, int mask, const char* format, ...);

#ifdef __cplusplus
}
#endif

#endif
