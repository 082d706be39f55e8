/* A deadlock ends the program, and who holds what is said. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "tests/concurrency/lock_watch.h"
#include "tests/concurrency/watchdog.h"
#include "tests/concurrency/worker.h"

static int open_lock(const std::string &path)
{
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

/* Takes one lock, waits until both workers have theirs, and wants the other's. */
static void embrace(Board *board, const OsCalls &calls, int worker, const std::string &own,
                    const std::string &others)
{
    board->enter(worker);
    board->line(worker).action = POSTING;
    if (calls.flock(open_lock(own), LOCK_EX) != 0) abort();
    board->wait_for_start();
    (void)calls.flock(open_lock(others), LOCK_EX);
}

[[noreturn]] static void lock_up(const std::string &root)
{
    const struct rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    const OsCalls calls = watched_calls();
    Board board(2);
    const Watchdog watchdog(&board, {}, 1, root);
    std::thread one([&] { embrace(&board, calls, 0, root + "/a", root + "/b"); });
    std::thread two([&] { embrace(&board, calls, 1, root + "/b", root + "/a"); });
    one.join();
    two.join();
    _exit(0);
}

/* What the process wrote to its standard error. */
static std::string read_all(int fd)
{
    std::string text;
    char piece[4096];
    for (ssize_t n; (n = read(fd, piece, sizeof(piece))) > 0;)
        text.append(piece, static_cast<size_t>(n));
    close(fd);
    return text;
}

TEST(Watchdog, SaysWhoHoldsWhatInADeadlock)
{
    std::string root = (std::filesystem::temp_directory_path() / "mlist-watchdog-XXXXXX").string();
    ASSERT_NE(nullptr, mkdtemp(root.data()));
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        lock_up(root);
    }
    close(ends[1]);
    const std::string report = read_all(ends[0]);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    EXPECT_NE(std::string::npos, report.find("deadlock: no worker has taken a step")) << report;
    EXPECT_NE(std::string::npos, report.find("posting on list 0, waits for b, holds a")) << report;
    EXPECT_NE(std::string::npos, report.find("posting on list 0, waits for a, holds b")) << report;
    std::filesystem::remove_all(root);
}
