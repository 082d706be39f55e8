#include "tests/unit/log/syslog_capture.h"

#include <stdarg.h>
#include <stdio.h>

#include <mutex>

static std::mutex lines_mutex; /* threads log too */
static std::vector<std::string> lines;

std::vector<std::string> take_syslog()
{
    const std::lock_guard lock(lines_mutex);
    return std::move(lines);
}

static void keep(int priority, const char *format, va_list arguments)
    __attribute__((format(printf, 2, 0)));

static void keep(int priority, const char *format, va_list arguments)
{
    char text[2000]; /* glibc's printf knows %m */
    vsnprintf(text, sizeof(text), format, arguments);
    const std::lock_guard lock(lines_mutex);
    lines.push_back(std::to_string(priority) + " " + text);
}

extern "C" {
void syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}

/* what syslog() is with fortified headers */
void __syslog_chk(int priority, int flag, const char *format, ...);
void __syslog_chk(int priority, int, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}
}
