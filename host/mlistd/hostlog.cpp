#include "host/mlistd/hostlog.h"

#include "mlog.h"

static LogHandle make_handle(int level)
{
    LogHandle handle{};
    mlog_init(0, &handle, 0);
    mlog_set_loglevel(&handle, level);
    return handle;
}

static LogHandle host_log = make_handle(5);

void set_host_log_level(int level)
{
    mlog_set_loglevel(&host_log, level);
}

void log_line(int level, LogNumber number, const std::string &text)
{
    mlog_sys(&host_log, level, number, text.c_str());
}

void log_error(LogNumber number, const std::string &text)
{
    log_line(1, number, text);
}

void log_warning(LogNumber number, const std::string &text)
{
    log_line(3, number, text);
}

void log_notice(LogNumber number, const std::string &text)
{
    log_line(5, number, text);
}

void log_trace(LogNumber number, const std::string &text)
{
    log_line(11, number, text);
}
