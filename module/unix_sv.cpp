/* Logging front end over the host's mlog() and mlog_sys(). */
#include "module/unix_sv.h"

#include <stdarg.h>
#include <stdio.h>

#include "module/guards.h"
#include "module/job.h"

LogHandle g_logh;
int32_t g_logml_level = 10;

#define TRACE_TEXT_SIZE 1024

static void format_text(char *text, const char *format, va_list arguments)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(text, TRACE_TEXT_SIZE - 1, format, arguments);
#pragma GCC diagnostic pop
    text[TRACE_TEXT_SIZE - 1] = '\0';
}

int trace(LogHandle *handle, int level, int msgno, const char *format, ...)
{
    KeepErrno keep;
    char text[TRACE_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    format_text(text, format, arguments);
    va_end(arguments);
    return mlog(handle, level, msgno, text);
}

int trace_sys(LogHandle *handle, int level, int msgno, const char *format, ...)
{
    KeepErrno keep;
    char text[TRACE_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    format_text(text, format, arguments);
    va_end(arguments);
    return mlog_sys(handle, level, msgno, text);
}

int printtrace(const DeliveryJob *job, const char *format, ...)
{
    char text[TRACE_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    format_text(text, format, arguments);
    va_end(arguments);
    return trace_sys(&g_logh, 11, 414, "TRC: [%03d:%s] %s", job->thread_id, job->list_name, text);
}

int printlog(const char *format, ...)
{
    char text[TRACE_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    format_text(text, format, arguments);
    va_end(arguments);
    return trace_sys(&g_logh, 5, 415, "LOG: %s", text);
}
