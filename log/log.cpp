/* Daily log files: one open file a thread, changed at midnight. */
#include "log/log.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "mlist/daily_log.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "store/str.h"

#define LOG_LINE_SIZE 1024
#define LOG_DIRECTORY_SIZE 1024
#define LOG_NAME_EXTRA 32 /* what the file's name adds to the directory's */

/* -- settings of the process -- */

static std::atomic<int> log_level;
static std::atomic<int> log_open;
static std::atomic<int> log_flush;
int log_echo;

/* -- the calling thread's file -- */

struct ThreadLog {
    char directory[LOG_DIRECTORY_SIZE];
    int fd;  /* 0 before the first open, -1 after a close, else open */
    int day; /* of the month, of the open file */
};

static thread_local ThreadLog thread_log;

static void lclose()
{
    if (thread_log.fd > 0) (void)os->close(thread_log.fd); /* flushed if anyone asked for it */
    thread_log.fd = -1;
}

/* A thread that ends takes its descriptor along. */
static pthread_key_t end_key;
static pthread_once_t end_once = PTHREAD_ONCE_INIT;

static void close_at_thread_end(void *)
{
    lclose();
}

static void make_end_key()
{
    (void)pthread_key_create(&end_key, close_at_thread_end);
}

static void watch_thread_end()
{
    pthread_once(&end_once, make_end_key);
    (void)pthread_setspecific(end_key, &thread_log);
}

/* 0, or -1 with ENAMETOOLONG. */
static int setdir(const char *directory)
{
    if (strlen(directory) >= sizeof(thread_log.directory)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    strncpy_(thread_log.directory, directory, sizeof(thread_log.directory));
    return 0;
}

/* A descriptor 0 would read as "never opened". */
static int above_zero(int fd)
{
    if (fd != 0) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    KeepErrno keep;
    (void)os->close(fd);
    return moved;
}

/* 0 open, 1 the file cannot be opened, -1 no memory. */
static int lopen(const struct tm *date)
{
    if (thread_log.fd > 0) return 0;
    syslog(LOG_ERR, "lopen f=%s", thread_log.directory);
    const size_t size = strlen(thread_log.directory) + LOG_NAME_EXTRA;
    const HostPtr<char> name(size);
    if (name.p == nullptr) {
        syslog(LOG_ERR, "ERROR meThrMemAlloc %m");
        return -1;
    }
    snprintf_(name.p, size, "%s/%04d%02d%02d.log", thread_log.directory, date->tm_year + 1900,
              date->tm_mon + 1, date->tm_mday);
    thread_log.fd = above_zero(open_file(name.p, O_RDWR | O_CREAT | O_APPEND, 0666));
    if (thread_log.fd < 0) {
        syslog(LOG_ERR, "ERROR CreateFile  %m file=%s", name.p);
        thread_log.fd = -1;
        return 1;
    }
    thread_log.day = date->tm_mday;
    return 0;
}

/* The file of today.  0, or -1 when it cannot be opened. */
static int update(const struct tm *date)
{
    if (date->tm_mday == thread_log.day) return 0;
    lclose();
    if (lopen(date) == 0) return 0;
    syslog(LOG_ERR, "update << open() %m");
    return -1;
}

int put(const char *text, size_t size)
{
    return thread_log.fd > 0 ? write_all(thread_log.fd, text, size) : -1;
}

static void flush()
{
    if (thread_log.fd <= 0 || os->fsync(thread_log.fd) == 0) return;
    syslog(LOG_ERR, "ERROR FlushFileBuffers %m");
    lclose();
}

/* -- lines -- */

struct Now {
    struct tm date;
    int milliseconds;
};

static Now current_time()
{
    struct timespec time;
    Now now = {};
    (void)os->clock_gettime(CLOCK_REALTIME, &time);
    (void)localtime_r(&time.tv_sec, &now.date);
    now.milliseconds = static_cast<int>(time.tv_nsec / 1000000);
    return now;
}

static size_t header(char *line, const Now &now)
{
    snprintf_(line, LOG_LINE_SIZE, "%02d:%02d:%02d.%03d [%04d] ", now.date.tm_hour, now.date.tm_min,
              now.date.tm_sec, now.milliseconds, gettid());
    return strlen(line);
}

/* Whether the calling thread has lines of this level to write. */
static bool is_wanted(int level)
{
    return log_open != 0 && log_level >= level && thread_log.directory[0] != '\0';
}

/* Formats a line: header, text, the given end.  What is too long is cut from the text.  Its size;
   text_out receives where the text begins. */
static size_t format_line(char *line, const Now &now, const char *end, const char *format,
                          va_list arguments, const char **text_out)
    __attribute__((format(printf, 4, 0)));

static size_t format_line(char *line, const Now &now, const char *end, const char *format,
                          va_list arguments, const char **text_out)
{
    const size_t begin = header(line, now);
    const size_t end_size = strlen(end);
    vsnprintf(line + begin, LOG_LINE_SIZE - begin - end_size, format, arguments);
    *text_out = line + begin;
    const size_t used = strlen(line);
    memcpy(line + used, end, end_size + 1);
    return used + end_size;
}

/* Writes a formatted line to the file of its day.  Whether it is there. */
static bool write_line(const Now &now, const char *line, size_t size)
{
    return update(&now.date) == 0 && put(line, size) == 0;
}

static void echo(int level, const char *prefix, const char *text, size_t size)
{
    if (level == 0 && log_echo != 0)
        syslog(LOG_ERR, "%s%.*s", prefix, static_cast<int>(size), text);
}

void logprint(int level, const char *format, ...)
{
    if (!is_wanted(level)) return;
    KeepErrno keep;
    const Now now = current_time();
    char line[LOG_LINE_SIZE];
    const char *text;
    va_list arguments;
    va_start(arguments, format);
    const size_t size = format_line(line, now, "\r\n", format, arguments, &text);
    va_end(arguments);
    echo(level, " logprint: ", text, strlen(text) - 2);
    (void)write_line(now, line, size); /* a log that cannot be written has nobody to tell */
    if (log_flush != 0) flush();
}

void logdump(int level, const void *data, int length, const char *format, ...)
{
    if (!is_wanted(level)) return;
    KeepErrno keep;
    const Now now = current_time();
    char line[LOG_LINE_SIZE], end[32];
    snprintf_(end, sizeof(end), " (%d)\r\n", length);
    const char *text;
    va_list arguments;
    va_start(arguments, format);
    const size_t size = format_line(line, now, end, format, arguments, &text);
    va_end(arguments);
    echo(level, "logdump ", text, strlen(text) - 2);
    if (write_line(now, line, size)) (void)dump(data, length); /* as above */
    if (log_flush != 0) flush();
}

void logflush(void)
{
    flush();
}

/* -- opening and closing -- */

int logopen(int, const char *directory, int level, int, int flush_flag)
{
    if (directory == nullptr) directory = "";
    if (setdir(directory) < 0) {
        syslog(LOG_ERR, "setdir()");
        return -1;
    }
    watch_thread_end();
    log_level = level;
    log_flush = flush_flag;
    syslog(LOG_ERR, "lopen in");
    const Now now = current_time();
    const int opened = lopen(&now.date);
    if (opened < 0) {
        syslog(LOG_ERR, " maillist log open() %m");
        return -1;
    }
    if (opened == 0) log_open = 1;
    return 0;
}

void logclose(void)
{
    if (log_open == 0) return;
    lclose();
    log_open = 0;
}
