/*
 * The command line of an example: --help and --version are answered, and what it doesn't know is
 * refused with a usage line and exit code 2.
 */
#ifndef EXAMPLES_OPTIONS_H
#define EXAMPLES_OPTIONS_H

#include <gantry/version.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* `operands` is what the usage line has behind the program's name, and `count` how many there may
 * be. */
static inline void read_options(int argc, char** argv, const char* operands, int count)
{
    const char* first = argc > 1 ? argv[1] : "";
    if (strcmp(first, "--version") == 0)
    {
        printf("libdbusgantry %s\n", GANTRY_version());
        exit(EXIT_SUCCESS);
    }
    const int is_help = strcmp(first, "--help") == 0;
    if (is_help || first[0] == '-' || argc - 1 > count)
    {
        fprintf(is_help ? stdout : stderr, "usage: %s%s\n", argv[0], operands);
        exit(is_help ? EXIT_SUCCESS : 2);
    }
}

#endif
