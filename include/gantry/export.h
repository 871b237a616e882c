/*
 * Macros for the visibility of symbols and for C linkage in C++.
 */
#ifndef GANTRY_EXPORT_H
#define GANTRY_EXPORT_H

#define GANTRY_API __attribute__((visibility("default")))
#define GANTRY_HIDDEN __attribute__((visibility("hidden")))

#ifdef __cplusplus
#define GANTRY_BEGIN_C                                                                             \
    extern "C"                                                                                     \
    {
#define GANTRY_END_C }
#else
#define GANTRY_BEGIN_C
#define GANTRY_END_C
#endif

#endif
