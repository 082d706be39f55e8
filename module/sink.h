/* The one place that prints: text for the calling thread's sink (mlist/output.h). */
#ifndef MODULE_SINK_H
#define MODULE_SINK_H

#include "mlist/output.h"

/* Formats to the thread's sink.  errno is kept. */
void out_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Formats to the error stream (stderr).  errno is kept. */
void err_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Hands what was printed to whoever reads the sink; before an operation returns. */
void out_flush();

#endif
