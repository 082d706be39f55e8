/* Per-thread sink of everything that the module prints. */
#include "module/sink.h"

#include <stdarg.h>
#include <stdio.h>

#include "module/guards.h"

static thread_local FILE *thread_sink; /* null: the process's stdout */

void mlist_set_output(FILE *stream)
{
    thread_sink = stream;
}

FILE *mlist_get_output(void)
{
    return thread_sink != nullptr ? thread_sink : stdout;
}

static void print_to(FILE *stream, const char *format, va_list arguments)
    __attribute__((format(printf, 2, 0)));

static void print_to(FILE *stream, const char *format, va_list arguments)
{
    KeepErrno keep;
    vfprintf(stream, format, arguments);
}

void out_printf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print_to(mlist_get_output(), format, arguments);
    va_end(arguments);
}

void err_printf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print_to(stderr, format, arguments);
    va_end(arguments);
}

void out_flush()
{
    KeepErrno keep;
    fflush(mlist_get_output());
}
