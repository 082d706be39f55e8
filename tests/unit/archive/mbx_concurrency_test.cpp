/* Many threads and several processes on one mailbox. */
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <thread>

#include "mlist/output.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

static bool append_file(const Box &box, const std::string &source)
{
    IndexHandle *batch = mbxappend(box.path(), NO_INDEX_HANDLE, source.c_str(), 0, 0, 4, 0);
    if (batch == NO_INDEX_HANDLE) return false;
    (void)mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0);
    return errno == 0;
}

/* A reader with a handle of its own, as the host's IMAP side is; false when it saw something that
   cannot be: the view has to stay in order, whatever happens beside it. */
static bool read_for_a_while(const Box &box, int rounds)
{
    FILE *nowhere = fopen("/dev/null", "w");
    mlist_set_output(nowhere);
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    bool good = handle != nullptr;
    for (int round = 0; good && round < rounds; ++round) {
        handle->mode |= MAILBOX_FORCE_CHECK;
        if (round % 2 == 0)
            mlmbx_checknewmail(handle);
        else
            mlmbx_checknewmail2(handle);
        const IndexRecord *index = handle->index;
        for (uint32_t i = 2; i < index[0].header_size; ++i)
            good = good && index[i - 1].uid < index[i].uid;
        if (index[0].header_size > 5 && round % 3 == 0) {
            handle->index[1].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
            mlmbx_expunge(handle, 0);
        }
    }
    list_mbx_close(handle);
    mlist_set_output(nullptr);
    fclose(nowhere);
    return good;
}

static void expect_consistent(const Box &box, uint32_t appended)
{
    const Records records = box.index();
    EXPECT_EQ(appended + 1, records[0].uid);
    EXPECT_EQ(Box::validity, records[0].flags);
    std::set<std::string> wanted;
    for (size_t i = 1; i < records.size(); ++i)
        wanted.insert(std::to_string(records[i].uid));
    const auto files = list_directory(box.name("#msg"));
    EXPECT_EQ(wanted, std::set<std::string>(files.begin(), files.end()));
    EXPECT_EQ(records.size() - 1, wanted.size());
    EXPECT_EQ((std::vector<std::string>{"#mix", "#msg"}), list_directory(box.path()));
}

TEST(Concurrency, ThreadsAppendReadAndExpungeTogether)
{
    WithoutSync no_sync;
    Box box;
    const std::string source = box.source("text");
    std::vector<std::thread> threads;
    std::vector<int> good(6, 0);
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            good[t] = 1;
            for (int i = 0; i < 40; ++i)
                if (!append_file(box, source)) good[t] = 0;
        });
    for (int t = 3; t < 6; ++t)
        threads.emplace_back([&, t] { good[t] = read_for_a_while(box, 40); });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<int>(6, 1), good);
    expect_consistent(box, 120);
    EXPECT_EQ(std::vector<std::string>{}, take_log_lines());
}

template <class Work> static pid_t start(Work work)
{
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    return child;
}

TEST(Concurrency, ProcessesAppendReadAndExpungeTogether)
{
    WithoutSync no_sync;
    Box box;
    const std::string source = box.source("text");
    std::vector<pid_t> children;
    for (int process = 0; process < 2; ++process) {
        children.push_back(start([&] {
            for (int i = 0; i < 40; ++i)
                if (!append_file(box, source)) return false;
            return true;
        }));
        children.push_back(start([&] { return read_for_a_while(box, 40); }));
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
    expect_consistent(box, 80);
}

/* A process that is killed with the lock gives it back; the mailbox is whole. */
TEST(Concurrency, AKilledProcessKeepsNobodyWaiting)
{
    Box box;
    const std::string source = box.source("text");
    const pid_t child = start([&] {
        for (;;)
            (void)append_file(box, source);
        return true;
    });
    while (box.index().size() < 5)
        usleep(1000);
    kill(child, SIGKILL);
    int status;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(append_file(box, source));
    const Records records = box.index();
    EXPECT_EQ(records.size(), records[0].uid);
    for (size_t i = 1; i < records.size(); ++i)
        EXPECT_EQ(i, records[i].uid);
    EXPECT_EQ("text", read_file(box.message(records.back().uid)));
    EXPECT_EQ((std::vector<std::string>{"#mix", "#msg"}), list_directory(box.path()));
}
