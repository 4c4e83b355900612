/*
 * Preloaded into a program, shows it the file "pvc" of the device folder
 * $CORVANTA_DEVICE in place of the kernel's list of open ATM circuits. Every
 * other path, and every path when no folder is named, goes through as it is.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* shown(const char* path, char* buffer) {
    const char* folder = getenv("CORVANTA_DEVICE");
    if (path == NULL || folder == NULL || strcmp(path, "/proc/net/atm/pvc") != 0)
        return path;
    return snprintf(buffer, PATH_MAX, "%s/pvc", folder) < PATH_MAX ? buffer : path;
}

/* `next` is what the program would have called without us. */
#define NEXT(name)                                                                                 \
    char buffer[PATH_MAX];                                                                         \
    __typeof__(&name) next = __extension__(__typeof__(&name)) dlsym(RTLD_NEXT, #name)

#define FOPEN(name)                                                                                \
    FILE* name(const char* path, const char* how) {                                                \
        NEXT(name);                                                                                \
        return next(shown(path, buffer), how);                                                     \
    }

/* A mode is given only where the file may be created. */
#define COMMA ,
#define OPEN(name, parameter, argument)                                                            \
    int name(parameter const char* path, int flags, ...) {                                         \
        NEXT(name);                                                                                \
        if ((flags & O_CREAT) == 0 && (flags & O_TMPFILE) != O_TMPFILE)                            \
            return next(argument shown(path, buffer), flags);                                      \
        va_list more;                                                                              \
        va_start(more, flags);                                                                     \
        const mode_t mode = va_arg(more, mode_t);                                                  \
        va_end(more);                                                                              \
        return next(argument shown(path, buffer), flags, mode);                                    \
    }

FOPEN(fopen)
FOPEN(fopen64)
OPEN(open, , )
OPEN(open64, , )
OPEN(openat, int folder COMMA, folder COMMA)
OPEN(openat64, int folder COMMA, folder COMMA)
