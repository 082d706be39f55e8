/* libmlog.so: the host's log channel.

   The module calls the first four; the rest is for the host that owns the process.  All of it may
   be called from any thread.  A text is never used as a format.  Control characters (LF, CR, TAB
   included) are shown escaped (\xNN, \n, \r, \t) in line-oriented targets. */
#ifndef MLOG_H
#define MLOG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Owned by the caller, filled by mlog_init(). */
struct LogHandle {
    int32_t facility; /* mlog_init's first argument */
    int32_t level;    /* lines above it are dropped */
    int32_t flags;    /* mlog_init's third argument */
    int32_t reserved;
};

/* Prepares a handle.  Opens nothing by itself.  0, or -1 for a null handle. */
int mlog_init(int facility, struct LogHandle *handle, int flags);

/* 0, or -1 for a null handle. */
int mlog_set_loglevel(struct LogHandle *handle, int32_t level);

/* Delivery log and system log.  Level 1 errors and detail, 3 warnings, 5 notices, 11 trace.
   0 written or dropped by level, -1 when the target refused the line.  errno is kept. */
int mlog(struct LogHandle *handle, int level, int msgno, const char *text);
int mlog_sys(struct LogHandle *handle, int level, int msgno, const char *text);

/* Chooses the target of both logs: "stderr" (the start value), "file:PATH" (appended, one line an
   entry), "syslog" (facility mail), "journal" (systemd; fields LEVEL, MSGNO, LIST), "memory"
   (tests), "none".  0, or -1 with errno and the old target kept. */
int mlog_set_target(const char *target);

/* Opens a file target anew, as after a rotation.  0, or -1 with errno and the old file kept. */
int mlog_reopen(void);

/* "memory": the lines collected so far, "LOG LEVEL MSGNO TEXT\n" each, with LOG "mlog" or
   "mlog_sys".  Returns their total length; copies at most size - 1 bytes and ends them with NUL;
   clear empties the store. */
size_t mlog_memory(char *buffer, size_t size, int clear);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
