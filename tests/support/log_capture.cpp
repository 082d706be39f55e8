/* mlog(), mlog_sys() and the configuration library in memory. */
#include "tests/support/log_capture.h"

#include <errno.h>

#include <mutex>
#include <utility>

#include "ldapuse.h"
#include "mlog.h"

int32_t service_log_level = -1;
bool log_collected = true;

static std::mutex log_mutex;
static std::vector<LogLine> log_lines;

static int keep(bool system, int level, int msgno, const char *text)
{
    if (!log_collected) return 0;
    const int saved = errno;
    {
        const std::lock_guard<std::mutex> lock(log_mutex);
        log_lines.push_back({system, level, msgno, text});
    }
    errno = saved;
    return 0;
}

extern "C" {
int mlog_init(int facility, LogHandle *handle, int flags)
{
    *handle = LogHandle{facility, 0, flags, 0};
    return 0;
}

int mlog_set_loglevel(LogHandle *handle, int32_t level)
{
    handle->level = level;
    return 0;
}

int mlog(LogHandle *, int level, int msgno, const char *text)
{
    return keep(false, level, msgno, text);
}

int mlog_sys(LogHandle *, int level, int msgno, const char *text)
{
    return keep(true, level, msgno, text);
}

int kyt_conf_init(int)
{
    return KYT_FOUND;
}

int kyt_smtp_servicesconf_search(int32_t *, int32_t *, int32_t *, char *, int32_t *, int32_t *,
                                 int32_t *, int32_t *, int32_t *, int32_t *, int32_t *level)
{
    if (service_log_level < 0) return KYT_NOT_FOUND;
    *level = service_log_level;
    return KYT_FOUND;
}
}

std::vector<LogLine> take_log()
{
    const std::lock_guard<std::mutex> lock(log_mutex);
    return std::exchange(log_lines, {});
}

static bool is_result_code_line(const LogLine &line)
{
    return line.text.starts_with("set code [") || line.text.starts_with("return code [") ||
           line.text.starts_with("tls get value in get_rcode");
}

std::vector<std::string> take_log_lines(bool all)
{
    std::vector<std::string> lines;
    for (const LogLine &line : take_log())
        if (all || (line.level < 11 && !is_result_code_line(line)))
            lines.push_back(std::to_string(line.level) + "/" + std::to_string(line.msgno) + " " +
                            line.text);
    return lines;
}

template <class Match> static bool any_line(Match match)
{
    const std::lock_guard<std::mutex> lock(log_mutex);
    for (const LogLine &line : log_lines)
        if (match(line)) return true;
    return false;
}

bool logged(int msgno, const std::string &text)
{
    return any_line([&](const LogLine &l) { return l.msgno == msgno && l.text == text; });
}

bool logged_prefix(int msgno, const std::string &prefix)
{
    return any_line(
        [&](const LogLine &l) { return l.msgno == msgno && l.text.starts_with(prefix); });
}
