/* Where log lines go.  One table row a target; mlog_set_target() picks a row by its name. */
#ifndef HOST_LIBMLOG_TARGET_H
#define HOST_LIBMLOG_TARGET_H

#include <stddef.h>

#include <string>

#include "host/libmlog/line.h"

struct LogTarget {
    const char *name;                    /* a name that ends in ":" takes an argument */
    int (*open)(const char *argument);   /* 0, or -1 with errno and nothing changed */
    int (*write)(const LogEntry &entry); /* 0, or -1; called from any number of threads at once */
    int (*reopen)();                     /* as open */
};

/* The target of this text ("stderr", "file:PATH"), its argument in argument_out; null: unknown. */
const LogTarget *find_target(const char *text, const char **argument_out);

/* The target until one is chosen. */
extern const LogTarget *const first_target;

/* The "memory" target's store; see mlog_memory(). */
size_t read_memory(char *buffer, size_t size, bool clear);

#endif
