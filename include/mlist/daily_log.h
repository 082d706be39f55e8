/* A logger of the module's own, for hosts: text lines and hex dumps in one file a day.

   Directory, descriptor and day belong to the calling thread: each thread that logs calls
   logopen() for itself, and several may share a directory; their lines interleave whole.  Level
   and flags are the process's.  Failures go to syslog(3) at LOG_ERR only. */
#ifndef MLIST_DAILY_LOG_H
#define MLIST_DAILY_LOG_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Opens DIRECTORY/YYYYMMDD.log (local date, appended, mode 0666 less the umask) for the calling
   thread and sets the level and the flush flag.  The first and the fourth argument are not read.
   0, also when the file could not be opened (nothing is logged then); -1 when the directory's name
   is too long or there is no memory. */
int logopen(int unused, const char *directory, int level, int unused_too, int flush);

/* Closes the calling thread's file; logging is off for all until the next logopen(). */
void logclose(void);

/* "HH:MM:SS.mmm [TID] text" and CR LF, at most 1,023 characters (the text is cut), if level is not
   above the configured one.  A line of a new day goes to that day's file.  errno is kept. */
void logprint(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* The same line with " (LENGTH)" behind the text, then the data, sixteen bytes a line. */
void logdump(int level, const void *data, int length, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

/* Syncs the calling thread's file. */
void logflush(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
