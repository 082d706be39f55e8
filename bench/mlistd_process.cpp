#include "bench/mlistd_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

namespace fs = std::filesystem;

/* Beside this program: BUILD/bench/THIS, BUILD/bin/NAME. */
static std::string program(const char *name)
{
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin" / name;
}

static void write_file(const std::string &path, const std::string &text)
{
    FILE *file = fopen(path.c_str(), "we");
    if (file == nullptr || fwrite(text.data(), 1, text.size(), file) != text.size() ||
        fclose(file) != 0)
        abort();
}

static pid_t start(const std::vector<std::string> &words)
{
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process;
    if (posix_spawn(&process, arguments[0], &quiet, nullptr, arguments.data(), environ) != 0)
        abort();
    posix_spawn_file_actions_destroy(&quiet);
    return process;
}

static void run(const std::vector<std::string> &words)
{
    int status = 0;
    const pid_t process = start(words);
    if (waitpid(process, &status, 0) != process || status != 0) abort();
}

static int connect_to(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(made, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0) return made;
    close(made);
    return -1;
}

MlistdProcess::MlistdProcess(const std::string &below, int lists, int members, uint16_t relay_port)
{
    std::string name = below + "/mlist-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) abort();
    directory_ = name;
    fs::create_directory(directory_ + "/data");
    write_file(directory_ + "/mlistd.toml",
               "[paths]\ndata = \"" + directory_ + "/data\"\n[process]\n" +
                   "hostname = \"mail.example.jp\"\n[log]\ntarget = \"file:" + directory_ +
                   "/log\"\n[lmtp]\nlisten = \"unix:" + socket_path() +
                   "\"\n[relay]\ntarget = \"smtp:127.0.0.1:" + std::to_string(relay_port) + "\"\n");
    make_lists(lists, members);
    process_ = start({program("mlistd"), "--config", directory_ + "/mlistd.toml"});
    for (int wait = 0, socket = -1; socket < 0; wait++) {
        if (wait > 20'000 || waitpid(process_, nullptr, WNOHANG) != 0) abort();
        usleep(1000);
        socket = connect_to(socket_path());
        if (socket >= 0) close(socket);
    }
}

MlistdProcess::~MlistdProcess()
{
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    fs::remove_all(directory_);
}

/* One list by the tool, the roster as its file: adding so many one by one takes its time. */
void MlistdProcess::make_lists(int lists, int members) const
{
    std::string roster, active;
    for (int number = 0; number < members; number++) {
        roster += sample_member(number) + " ON \r\n";
        active += sample_member(number) + "\r\n";
    }
    for (int list = 0; list < lists; list++) {
        const std::string local = "list" + std::to_string(list);
        run({program("mlistctl"), "--config", directory_ + "/mlistd.toml", "list", "create",
             local + "@example.jp"});
        const std::string control = directory_ + "/data/control/example.jp/" + local;
        write_file(control + "/member", roster);
        write_file(control + "/active", active);
    }
}

double MlistdProcess::processor_seconds() const
{
    clockid_t clock;
    struct timespec used;
    if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &used) != 0) abort();
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

bool MlistdProcess::queue_is_empty() const
{
    return fs::is_empty(directory_ + "/data/spool/out");
}

/* -- the client -- */

LmtpConnection::LmtpConnection(const std::string &socket_path) : socket_(connect_to(socket_path))
{
    if (socket_ < 0 || reply() != 220) abort();
    say("LHLO client.example.net\r\n");
    if (reply() != 250) abort();
}

LmtpConnection::~LmtpConnection()
{
    close(socket_);
}

void LmtpConnection::say(const std::string &text) const
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = send(socket_, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (n <= 0) abort();
        done += static_cast<size_t>(n);
    }
}

int LmtpConnection::reply()
{
    for (;;) {
        const size_t end = received_.find("\r\n");
        if (end == received_.npos) {
            char piece[4096];
            const ssize_t n = recv(socket_, piece, sizeof(piece), 0);
            if (n <= 0) abort();
            received_.append(piece, static_cast<size_t>(n));
            continue;
        }
        const std::string line = received_.substr(0, end);
        received_.erase(0, end + 2);
        if (line.size() < 4 || line[3] != '-') return atoi(line.c_str());
    }
}

void LmtpConnection::post(const std::string &list, const std::string &mail)
{
    say("MAIL FROM:<" + sample_member(0) + ">\r\nRCPT TO:<" + list + ">\r\nDATA\r\n");
    for (const int wanted : {250, 250, 354})
        if (reply() != wanted) abort();
    say(mail + ".\r\n");
    if (reply() != 250) abort();
}

/* -- what is sent -- */

std::string sample_member(int number)
{
    char text[64];
    snprintf(text, sizeof(text), "member%05d@some-domain.example.net", number);
    return text;
}

std::string sample_mail(const std::string &list, uint64_t number)
{
    std::string mail = "From: Somebody <" + sample_member(0) + ">\r\nTo: " + list +
                       "\r\nSubject: A mail of the usual size\r\nMessage-ID: <" +
                       std::to_string(number) +
                       "@some-domain.example.net>\r\n"
                       "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\nMime-Version: 1.0\r\n"
                       "Content-Type: text/plain; charset=us-ascii\r\n\r\n";
    const std::string line = std::string(70, 'x') + "\r\n";
    while (mail.size() + line.size() <= 4096)
        mail += line;
    return mail + std::string(4096 - mail.size() - 2, 'y') + "\r\n";
}
