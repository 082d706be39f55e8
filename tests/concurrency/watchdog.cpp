#include "tests/concurrency/watchdog.h"

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "tests/concurrency/worker.h"

namespace fs = std::filesystem;

Watchdog::Watchdog(Board *board, std::vector<pid_t> children, int seconds, std::string root)
    : board_(board), children_(std::move(children)), seconds_(seconds), root_(std::move(root))
{
    if (pipe(stop_) != 0) abort();
    thread_ = std::thread([this] { watch(); });
}

Watchdog::~Watchdog()
{
    close(stop_[1]); /* ends the wait */
    thread_.join();
    close(stop_[0]);
}

static uint64_t all_steps(Board *board)
{
    uint64_t steps = 0;
    for (int worker = 0; worker < board->workers(); ++worker)
        steps += board->line(worker).steps;
    return steps;
}

void Watchdog::watch()
{
    uint64_t seen = 0;
    for (int still = 0; still < seconds_; ++still) {
        pollfd stopped = {stop_[0], POLLIN, 0};
        if (poll(&stopped, 1, 1000) != 0) return;
        const uint64_t steps = all_steps(board_);
        if (steps != seen) still = 0;
        seen = steps;
    }
    report();
}

/* -- its report -- */

using Names = std::map<uint64_t, std::string>;

/* The files below a directory by their inodes. */
static Names names_below(const std::string &root)
{
    Names names;
    std::error_code gone; /* what others delete meanwhile holds nobody up */
    for (fs::recursive_directory_iterator at(root, gone), end; at != end; at.increment(gone)) {
        struct stat status;
        if (lstat(at->path().c_str(), &status) == 0)
            names[status.st_ino] = fs::relative(at->path(), root, gone).string();
    }
    return names;
}

static std::string name_of(const Names &names, uint64_t inode)
{
    const auto found = names.find(inode);
    return found != names.end() ? found->second : "inode " + std::to_string(inode);
}

static std::string line_text(const BoardLine &line, const Names &names)
{
    std::string text = "process " + std::to_string(line.process_id) + ", thread " +
                       std::to_string(line.thread_id) + ": " + std::to_string(line.steps) +
                       " steps, now " + action_name(line.action) + " on list " +
                       std::to_string(line.list);
    if (line.waits_for != 0) text += ", waits for " + name_of(names, line.waits_for);
    for (const HeldLock &lock : line.held)
        if (lock.inode != 0) text += ", holds " + name_of(names, lock.inode);
    return text;
}

/* What the kernel knows of the locks below root, for processes that nothing watches: its line, and
   the file behind it. */
static void print_kernel_locks(const Names &names)
{
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        const size_t blank = line.find(' ', line.find(':', line.find(':') + 1));
        const size_t colon = line.rfind(':', blank);
        const auto found = names.find(strtoull(line.c_str() + colon + 1, nullptr, 10));
        if (found != names.end())
            fprintf(stderr, "lock %s (%s)\n", line.c_str(), found->second.c_str());
    }
}

void Watchdog::report()
{
    const Names names = names_below(root_);
    fprintf(stderr, "deadlock: no worker has taken a step for %d seconds\n", seconds_);
    for (int worker = 0; worker < board_->workers(); ++worker)
        fprintf(stderr, "worker %d, %s\n", worker, line_text(board_->line(worker), names).c_str());
    print_kernel_locks(names);
    for (const pid_t child : children_)
        kill(child, SIGKILL);
    abort();
}
