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
     * level   1 an error, 2 a warning, up to 9 a trace. A message above the threshold is dropped
     * before it is formatted. The threshold is $TALLYLOG_LEVEL as the first call finds it, else 2.
     * mask    the module that logs, as a bit set. Kept for filters of the service's own; not shown.
     * format  as for printf(3); not null. A line break at its end is not needed, and not doubled.
     *
     * The message becomes one line on standard error, behind the level as sd-daemon(3) has it, so a
     * journal keeps it. Line breaks and other control characters inside it turn into spaces. A line
     * of more than PIPE_BUF bytes is cut and ends in an ellipsis, so that it leaves in one piece
     * whoever else writes there.
     *
     * Returns the number of bytes written, 0 for a message above the threshold, -1 when the format
     * or the write failed. errno is left as it was, and "%m" in the format shows it.
     */
    __attribute__((format(printf, 3, 4), visibility("default"))) int
    tallylog_printf(int level, int mask, const char* format, ...);

#ifdef __cplusplus
}
#endif

#endif
