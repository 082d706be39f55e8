#include "host/libmlog/target.h"

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>

static int open_nothing(const char *)
{
    return 0;
}
static int reopen_nothing()
{
    return 0;
}
static int write_nothing(const LogEntry &)
{
    return 0;
}

/* Normally one write(2), which O_APPEND and pipes keep whole beside other threads' lines. */
static int write_line(int fd, const std::string &line)
{
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t n = ::write(fd, line.data() + done, line.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return -1;
        done += static_cast<size_t>(n);
    }
    return 0;
}

static int write_stderr(const LogEntry &entry)
{
    return write_line(2, dated_line(entry));
}

/* file: one descriptor number for the life of the process, so that writers need no lock: another
   file, or the same one after a rotation, is put behind that number at one stroke. */
static std::atomic<int> file_fd{-1};
/* Absolute: the working directory may change before a rotation.  Like the memory store below never
   destroyed: threads may log while the process ends. */
static std::string &file_path = *new std::string;

static int put_file_behind(int opened)
{
    const int kept = file_fd.load();
    if (kept < 0) {
        file_fd.store(opened);
        return 0;
    }
    const int result = dup3(opened, kept, O_CLOEXEC) < 0 ? -1 : 0;
    const int saved = errno;
    ::close(opened);
    errno = saved;
    return result;
}

static int open_log_file(const std::string &path)
{
    const int opened = ::open(
        path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0640);
    if (opened < 0) return -1;
    return put_file_behind(opened);
}

static int absolute_path(const char *path, std::string &absolute_out)
{
    if (path[0] == '\0') {
        errno = EINVAL;
        return -1;
    }
    absolute_out.clear();
    if (path[0] != '/') {
        char here[PATH_MAX];
        if (getcwd(here, sizeof(here)) == nullptr) return -1;
        absolute_out = here;
        absolute_out += '/';
    }
    absolute_out += path;
    return 0;
}

static int open_file(const char *path)
{
    std::string absolute;
    if (absolute_path(path, absolute) < 0 || open_log_file(absolute) < 0) return -1;
    file_path = absolute;
    return 0;
}

static int reopen_file()
{
    return open_log_file(file_path);
}

static int write_file(const LogEntry &entry)
{
    return write_line(file_fd, dated_line(entry));
}

static int open_syslog(const char *)
{
    openlog(nullptr, LOG_PID, LOG_MAIL);
    return 0;
}

static int write_syslog(const LogEntry &entry)
{
    syslog(LOG_MAIL | priority_of(entry.level), "%s", plain_line(entry).c_str());
    return 0;
}

static const char journal_socket[] = "/run/systemd/journal/socket";

/* The journal's own library takes a line for sent when nobody runs the journal. */
static int open_journal(const char *)
{
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0) return -1;
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, journal_socket, sizeof(journal_socket));
    const int result =
        connect(probe, reinterpret_cast<struct sockaddr *>(&address), sizeof(address));
    const int saved = errno;
    ::close(probe);
    errno = saved;
    return result;
}

static int write_journal(const LogEntry &entry)
{
    if (access(journal_socket, W_OK) < 0) {
        (void)write_stderr(entry); /* better there than nowhere; the caller hears of it */
        return -1;
    }
    std::string fields[] = {
        "MESSAGE=",
        "PRIORITY=" + std::to_string(priority_of(entry.level)),
        "SYSLOG_FACILITY=" + std::to_string(LOG_MAIL >> 3),
        std::string("LOG=") + entry.log,
        "LEVEL=" + std::to_string(entry.level),
        "MSGNO=" + std::to_string(entry.msgno),
        "LIST=",
    };
    constexpr int COUNT = static_cast<int>(std::size(fields));
    fields[0] += entry.text;
    const std::string_view list = list_of(entry.text);
    fields[COUNT - 1] += list;
    struct iovec vector[COUNT];
    for (int i = 0; i < COUNT; i++)
        vector[i] = {fields[i].data(), fields[i].size()};
    return sd_journal_sendv(vector, list.empty() ? COUNT - 1 : COUNT) < 0 ? -1 : 0;
}

static std::mutex memory_mutex;
static std::string &memory_lines = *new std::string;

static int write_memory(const LogEntry &entry)
{
    const std::string line = plain_line(entry) + '\n';
    const std::lock_guard lock(memory_mutex);
    memory_lines += line;
    return 0;
}

size_t read_memory(char *buffer, size_t size, bool clear)
{
    const std::lock_guard lock(memory_mutex);
    const size_t length = memory_lines.size();
    if (buffer != nullptr && size > 0) {
        const size_t copied = std::min(length, size - 1);
        memcpy(buffer, memory_lines.data(), copied);
        buffer[copied] = '\0';
    }
    if (clear) memory_lines.clear();
    return length;
}

static constexpr LogTarget targets[] = {
    {"stderr", open_nothing, write_stderr, reopen_nothing},
    {"file:", open_file, write_file, reopen_file},
    {"syslog", open_syslog, write_syslog, reopen_nothing},
    {"journal", open_journal, write_journal, reopen_nothing},
    {"memory", open_nothing, write_memory, reopen_nothing},
    {"none", open_nothing, write_nothing, reopen_nothing},
};
const LogTarget *const first_target = &targets[0];

const LogTarget *find_target(const char *text, const char **argument_out)
{
    for (const LogTarget &target : targets) {
        const size_t length = strlen(target.name);
        const bool with_argument = target.name[length - 1] == ':';
        if (strncmp(text, target.name, length) != 0) continue;
        if (!with_argument && text[length] != '\0') continue;
        *argument_out = text + length;
        return &target;
    }
    return nullptr;
}
