/* Inside the daily log: the calling thread's file. */
#ifndef LOG_LOG_H
#define LOG_LOG_H

#include <stddef.h>

/* Copies lines of level 0 to syslog(3) when not 0; nothing in the module sets it. */
extern int log_echo;

/* Appends to the open file.  0 or -1. */
[[nodiscard]] int put(const char *text, size_t size);

/* Writes data as hexadecimal digits and characters, sixteen bytes a line.  0 or -1. */
[[nodiscard]] int dump(const void *data, int length);

#endif
