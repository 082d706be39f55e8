#include "host/mlistctl/failure.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include "mlog.h"

std::string errno_text(const std::string &what)
{
    return what + ": " + std::strerror(errno);
}

static int exit_status_of(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
        return CTL_NO_PERMISSION;
    case ENOSPC:
    case EDQUOT:
    case EIO:
        return CTL_IO;
    default:
        return CTL_SYSTEM;
    }
}

static const char *advice_for(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return "run it as root or as the owner of the data directory";
    case ENOSPC:
    case EDQUOT:
        return "make room on the disk, then run the same command again";
    default:
        return "";
    }
}

void fail_on_file(const std::string &what, const std::string &path)
{
    int error = errno;
    std::string problem = errno_text(what + " " + path);
    throw Failure{exit_status_of(error), problem, advice_for(error)};
}

/* The module's lines are kept in memory while a verb runs; the last few tell why it failed. */
static std::string last_log_lines()
{
    constexpr size_t enough = 4;
    std::vector<char> buffer(mlog_memory(nullptr, 0, 0) + 1);
    mlog_memory(buffer.data(), buffer.size(), 1);
    std::string lines(buffer.data());
    while (!lines.empty() && lines.back() == '\n')
        lines.pop_back();
    size_t start = lines.size();
    for (size_t i = 0; i < enough && start != std::string::npos && start > 0; i++)
        start = lines.rfind('\n', start - 1);
    return start == std::string::npos || start == 0 ? lines : lines.substr(start + 1);
}

void fail_in_module(const std::string &what)
{
    int error = errno;
    std::string log = last_log_lines();
    throw Failure{error == 0 ? static_cast<int>(CTL_IO) : exit_status_of(error),
                  log.empty() ? what : what + "\n" + log, advice_for(error)};
}
