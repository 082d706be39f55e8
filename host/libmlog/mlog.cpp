/* libmlog.so: the C face.  No exception leaves it, and every logging call keeps errno. */
#include "mlog.h"

#include <errno.h>

#include <atomic>
#include <mutex>

#include "host/libmlog/target.h"

#define MLOG_EXPORT extern "C" __attribute__((visibility("default")))

/* Level of a handle that nobody has given one. */
#define FIRST_LEVEL 10

static std::atomic<const LogTarget *> current{first_target};
static std::mutex target_mutex; /* held while a target is chosen or opened anew, never to write */

MLOG_EXPORT int mlog_init(int facility, LogHandle *handle, int flags)
{
    if (handle == nullptr) return -1;
    *handle = {facility, FIRST_LEVEL, flags, 0};
    return 0;
}

MLOG_EXPORT int mlog_set_loglevel(LogHandle *handle, int32_t level)
{
    if (handle == nullptr) return -1;
    std::atomic_ref<int32_t>(handle->level).store(level, std::memory_order_relaxed);
    return 0;
}

static int log_entry(const char *log, LogHandle *handle, int level, int msgno, const char *text)
{
    if (handle == nullptr || text == nullptr) return -1;
    if (level > std::atomic_ref<int32_t>(handle->level).load(std::memory_order_relaxed)) return 0;
    const int saved = errno;
    int result = -1;
    try {
        result = current.load()->write({log, level, msgno, text});
    } catch (...) {
        /* no memory: the line is lost, the caller is told */
    }
    errno = saved;
    return result;
}

MLOG_EXPORT int mlog(LogHandle *handle, int level, int msgno, const char *text)
{
    return log_entry("mlog", handle, level, msgno, text);
}

MLOG_EXPORT int mlog_sys(LogHandle *handle, int level, int msgno, const char *text)
{
    return log_entry("mlog_sys", handle, level, msgno, text);
}

MLOG_EXPORT int mlog_set_target(const char *text)
{
    const char *argument = nullptr;
    const LogTarget *target = text == nullptr ? nullptr : find_target(text, &argument);
    if (target == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::lock_guard lock(target_mutex);
    try {
        if (target->open(argument) < 0) return -1;
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
    current.store(target);
    return 0;
}

MLOG_EXPORT int mlog_reopen(void)
{
    const std::lock_guard lock(target_mutex);
    try {
        return current.load()->reopen();
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
}

MLOG_EXPORT size_t mlog_memory(char *buffer, size_t size, int clear)
{
    return read_memory(buffer, size, clear != 0);
}
