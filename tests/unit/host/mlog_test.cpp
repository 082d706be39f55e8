/* libmlog.so, through the library as the module links it. */
#include "mlog.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <thread>

#include "tests/unit/host/scratch.h"

namespace
{
class Mlog : public testing::Test
{
  protected:
    Mlog()
    {
        EXPECT_EQ(0, mlog_set_target("memory"));
        memory();
        EXPECT_EQ(0, mlog_init(8, &handle_, 0));
    }
    ~Mlog() override { EXPECT_EQ(0, mlog_set_target("none")); }

    static std::string memory()
    {
        std::string text(mlog_memory(nullptr, 0, 0) + 1, '\0');
        text.resize(mlog_memory(text.data(), text.size(), 1));
        return text;
    }

    Scratch scratch_;
    LogHandle handle_;
};

/* "DATE LOG LEVEL MSGNO TEXT" without the date; the date's form is checked. */
std::string undated(const std::string &line)
{
    static const std::regex form(
        "^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d{4} ([^]*)$");
    std::smatch match;
    return std::regex_match(line, match, form) ? match[1].str() : "no date: " + line;
}

TEST_F(Mlog, InitFillsTheHandle)
{
    EXPECT_EQ(8, handle_.facility);
    EXPECT_EQ(0, handle_.flags);
    EXPECT_EQ(-1, mlog_init(8, nullptr, 0));
    EXPECT_EQ(-1, mlog_set_loglevel(nullptr, 5));
}

TEST_F(Mlog, BothLogsReachTheTargetWithLevelAndNumber)
{
    EXPECT_EQ(0, mlog(&handle_, 5, 370, "first"));
    EXPECT_EQ(0, mlog_sys(&handle_, 1, 374, "second"));
    EXPECT_EQ("mlog 5 370 first\nmlog_sys 1 374 second\n", memory());
}

TEST_F(Mlog, LinesAboveTheLevelAreDropped)
{
    EXPECT_EQ(0, mlog_set_loglevel(&handle_, 3));
    EXPECT_EQ(0, mlog(&handle_, 4, 1, "dropped"));
    EXPECT_EQ(0, mlog(&handle_, 3, 2, "kept"));
    EXPECT_EQ("mlog 3 2 kept\n", memory());
}

TEST_F(Mlog, NullHandleOrTextIsRefused)
{
    EXPECT_EQ(-1, mlog(nullptr, 1, 1, "text"));
    EXPECT_EQ(-1, mlog_sys(&handle_, 1, 1, nullptr));
    EXPECT_EQ("", memory());
}

TEST_F(Mlog, TextIsNeverAFormat)
{
    EXPECT_EQ(0, mlog(&handle_, 1, 1, "%s%n%d %999999999d"));
    EXPECT_EQ("mlog 1 1 %s%n%d %999999999d\n", memory());
}

TEST_F(Mlog, ControlCharactersAreEscapedInLines)
{
    static const struct {
        const char *label, *text, *shown;
    } rows[] = {
        {"line ends cannot forge a line", "a\r\nmlog 1 1 b", "a\\r\\nmlog 1 1 b"},
        {"tab", "a\tb", "a\\tb"},
        {"escape and delete", "\x1b[2J\x7f", "\\x1b[2J\\x7f"},
        {"controls in their UTF-8 form", "\xc2\x9b", "\\xc2\\x9b"},
        {"other bytes stay", "\xe3\x81\x82\\\xa4\xa2", "\xe3\x81\x82\\\xa4\xa2"},
        {"nothing", "", ""},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(0, mlog(&handle_, 1, 7, row.text)) << row.label;
        EXPECT_EQ(std::string("mlog 1 7 ") + row.shown + "\n", memory()) << row.label;
    }
}

TEST_F(Mlog, ErrnoIsKept)
{
    for (const char *target : {"memory", "none", "file:/dev/full"}) {
        ASSERT_EQ(0, mlog_set_target(target));
        errno = EDOM;
        (void)mlog(&handle_, 1, 1, "text");
        EXPECT_EQ(EDOM, errno) << target;
    }
}

TEST_F(Mlog, UnknownTargetKeepsTheOldOne)
{
    for (const char *target : {"", "paper", "stderrx", "file", "file:", "memory:"}) {
        errno = 0;
        EXPECT_EQ(-1, mlog_set_target(target)) << target;
        EXPECT_EQ(EINVAL, errno) << target;
    }
    EXPECT_EQ(-1, mlog_set_target(nullptr));
    EXPECT_EQ(-1, mlog_set_target(("file:" + scratch_.path("no/such/log")).c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(0, mlog(&handle_, 1, 1, "still here"));
    EXPECT_EQ("mlog 1 1 still here\n", memory());
}

TEST_F(Mlog, FileGetsOneDatedLineAnEntryBehindWhatItHolds)
{
    const std::string file = scratch_.write("log", "before\n");
    ASSERT_EQ(0, mlog_set_target(("file:" + file).c_str()));
    EXPECT_EQ(0, mlog_sys(&handle_, 3, 42, "mlname=alpha text"));
    const std::string text = read_file(file);
    ASSERT_TRUE(text.starts_with("before\n")) << text;
    EXPECT_EQ("mlog_sys 3 42 mlname=alpha text\n", undated(text.substr(7)));
}

TEST_F(Mlog, ReopenFollowsARotation)
{
    const std::string file = scratch_.path("log");
    ASSERT_EQ(0, mlog_set_target(("file:" + file).c_str()));
    EXPECT_EQ(0, mlog(&handle_, 1, 1, "one"));
    std::filesystem::rename(file, file + ".1");
    EXPECT_EQ(0, mlog(&handle_, 1, 2, "two"));
    ASSERT_EQ(0, mlog_reopen());
    EXPECT_EQ(0, mlog(&handle_, 1, 3, "three"));
    EXPECT_EQ("mlog 1 3 three\n", undated(read_file(file)));
    const std::string old = read_file(file + ".1");
    EXPECT_NE(old.npos, old.find("two"));
}

TEST_F(Mlog, FailedReopenKeepsTheOldFile)
{
    const std::string file = scratch_.path("log");
    ASSERT_EQ(0, mlog_set_target(("file:" + file).c_str()));
    std::filesystem::rename(file, file + ".1");
    std::filesystem::create_directory(file);
    EXPECT_EQ(-1, mlog_reopen());
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ(0, mlog(&handle_, 1, 2, "kept"));
    EXPECT_EQ("mlog 1 2 kept\n", undated(read_file(file + ".1")));
}

TEST_F(Mlog, FullDiskIsReported)
{
    ASSERT_EQ(0, mlog_set_target("file:/dev/full"));
    EXPECT_EQ(-1, mlog(&handle_, 1, 1, "text"));
}

TEST_F(Mlog, ThreadsNeverMixTheirLines)
{
    const std::string file = scratch_.path("log");
    ASSERT_EQ(0, mlog_set_target(("file:" + file).c_str()));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([this, t] {
            for (int i = 0; i < 200; i++) {
                EXPECT_EQ(
                    0, mlog(&handle_, 1, t, std::string(300, static_cast<char>('a' + t)).c_str()));
                if (i % 50 == 0) {
                    EXPECT_EQ(0, mlog_reopen());
                }
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    std::istringstream lines(read_file(file));
    std::string line;
    int count = 0;
    for (; std::getline(lines, line); count++) {
        const std::string entry = undated(line);
        ASSERT_GT(entry.size(), 9u);
        ASSERT_EQ("mlog 1 " + std::string(1, entry[7]) + " " +
                      std::string(300, static_cast<char>('a' + entry[7] - '0')),
                  entry);
    }
    EXPECT_EQ(800, count);
}

TEST_F(Mlog, StderrGetsDatedLines)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const int kept = dup(2);
    dup2(ends[1], 2);
    ASSERT_EQ(0, mlog_set_target("stderr"));
    const int result = mlog(&handle_, 1, 1, "shown");
    dup2(kept, 2);
    close(kept);
    close(ends[1]);
    char text[200] = "";
    ASSERT_LT(0, read(ends[0], text, sizeof(text) - 1));
    close(ends[0]);
    EXPECT_EQ(0, result);
    EXPECT_EQ("mlog 1 1 shown\n", undated(text));
}

TEST_F(Mlog, MemoryIsCopiedBounded)
{
    EXPECT_EQ(0, mlog(&handle_, 1, 1, "abcdef"));
    char small[6];
    EXPECT_EQ(16u, mlog_memory(small, sizeof(small), 0));
    EXPECT_STREQ("mlog ", small);
    EXPECT_EQ(16u, mlog_memory(nullptr, 0, 1));
    EXPECT_EQ(0u, mlog_memory(nullptr, 0, 0));
}

/* What a journal in a namespace of our own receives for one entry; "" when none can be had. */
std::string journal_entry(LogHandle &handle, const char *text)
{
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    const pid_t child = fork();
    if (child == 0) {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/run/systemd/journal/socket");
        const int server = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (unshare(CLONE_NEWNS) < 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, "") < 0 ||
            mount("tmpfs", "/run", "tmpfs", 0, "") < 0)
            _exit(77);
        std::filesystem::create_directories("/run/systemd/journal");
        if (mlog_set_target("journal") == 0) _exit(1); /* there is no journal yet */
        if (bind(server, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) < 0)
            _exit(77);
        if (mlog_set_target("journal") < 0 || mlog_sys(&handle, 3, 374, text) < 0) _exit(2);
        struct pollfd polled = {server, POLLIN, 0};
        char datagram[4096];
        if (poll(&polled, 1, 5000) != 1) _exit(3);
        const ssize_t n = recv(server, datagram, sizeof(datagram), 0);
        if (n < 0 || write(ends[1], datagram, static_cast<size_t>(n)) != n) _exit(4);
        unlink(address.sun_path);
        close(2);
        _exit(mlog(&handle, 1, 1, "nobody listens") == -1 ? 0 : 5);
    }
    close(ends[1]);
    int status = 0;
    waitpid(child, &status, 0);
    char datagram[4096];
    const ssize_t n = read(ends[0], datagram, sizeof(datagram));
    close(ends[0]);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) return "";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    return std::string(datagram, static_cast<size_t>(std::max<ssize_t>(n, 0)));
}

TEST_F(Mlog, JournalGetsFields)
{
    const std::string entry = journal_entry(handle_, "add_member mlname=alpha fputs1 error");
    ASSERT_FALSE(entry.empty()) << "needs a mount namespace (CAP_SYS_ADMIN)";
    for (const char *field : {"MESSAGE=add_member mlname=alpha fputs1 error\n", "LIST=alpha\n",
                              "LEVEL=3\n", "MSGNO=374\n", "PRIORITY=4\n", "LOG=mlog_sys\n"})
        EXPECT_NE(entry.npos, entry.find(field)) << field << "in\n" << entry;
}

TEST_F(Mlog, ListOfAnEntryIsTakenFromItsUsualPlaces)
{
    static const struct {
        const char *label, *text, *field;
    } rows[] = {
        {"at the start", "mlname=beta file lock fail", "LIST=beta\n"},
        {"in brackets", "mailing list name too long [ml=gamma]", "LIST=gamma\n"},
        {"behind a word", "convert_arg : mlname=delta memory", "LIST=delta\n"},
    };
    for (const auto &row : rows) {
        const std::string entry = journal_entry(handle_, row.text);
        ASSERT_FALSE(entry.empty()) << "needs a mount namespace (CAP_SYS_ADMIN)";
        EXPECT_NE(entry.npos, entry.find(row.field)) << row.label;
    }
    const std::string none = journal_entry(handle_, "set code [75]");
    EXPECT_EQ(none.npos, none.find("LIST="));
}
} // namespace
