/* Ten thousand deliveries leave a process as ten do: no memory more, no descriptor, no file.  In an
   instrumented build the leak sanitizer looks at the end; in any other the C library is asked. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <deque>
#include <memory>
#include <string>
#include <thread>

#include "module/os.h"
#include "tests/pipeline/pipeline.h"
#include "tests/support/own_request.h"

/* Memory that may come and go with the length of a name or a number. */
static constexpr size_t SLACK = 16 * 1024;

/* The list lies in memory, where the machine has a place for that, and nothing is synced. */
struct Unsynced {
    Unsynced()
    {
        if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
        calls.fsync = [](int) { return 0; };
        os = &calls;
    }
    ~Unsynced()
    {
        os = &kernel_calls;
        if (former.empty())
            unsetenv("TMPDIR");
        else
            setenv("TMPDIR", former.c_str(), 1);
    }
    const std::string former = getenv("TMPDIR") != nullptr ? getenv("TMPDIR") : "";
    OsCalls calls = kernel_calls;
};

/* A host that keeps nothing beyond a delivery. */
static thread_local std::deque<std::string> kept_texts;

struct LeakHost {
    static int submit(const char *, const char *, const char *const *, const char *, char *)
    {
        return 1;
    }
    static char *keep_text(const char *text) { return kept_texts.emplace_back(text).data(); }
};

class Leaks : public ::testing::Test
{
  protected:
    Leaks()
    {
        list.put("init", init_with({"vstrml=deny", "journal=20", "vstrc=grant", "subject=edit"}));
        list.put("member", "alice@example.net ON \r\nbob@example.jp DGT\r\n");
        list.put("active", "alice@example.net\r\n");
        list.put("digest", "bob@example.jp\r\n");
        list.put("msg/bnrbtm.txt", "-- \nthe list\n");
        mlist_set_output(nowhere);
        EXPECT_EQ(1, mlmbx_create(list.box().c_str()));
    }
    ~Leaks() override
    {
        mlist_set_output(nullptr);
        fclose(nowhere);
    }

    int deliver(const std::string &file, bool command)
    {
        OwnRequest own({LeakHost::submit, LeakHost::keep_text});
        const int code =
            own.deliver(ModuleMain, file, "example.jp", arguments_for("mylist", command));
        kept_texts.clear();
        kept_texts.shrink_to_fit();
        return code;
    }

    /* The n-th of a mix of everything that a list gets, whose rounds end where they began. */
    void deliver_nth(int n);

    /* As a host reads for somebody, on a context of the thread's own. */
    void read_archive();

    Unsynced unsynced; /* before the list */
    TempList list;
    FILE *nowhere = fopen("/dev/null", "we");
};

static const struct {
    const char *label, *from, *rest;
    bool command;
    int code;
} mix[] = {
    {"posting", "alice@example.net", "Subject: Hi\r\n\r\nHello.\r\n", false, 0},
    {"Japanese", "bob@example.jp",
     "Subject: =?ISO-2022-JP?B?GyRCJEYkOSRIGyhC?=\r\nContent-Type: text/plain; "
     "charset=iso-2022-jp\r\n\r\n\x1b$B$F$9$H\x1b(B\r\n",
     false, 0},
    {"denied", "dora@example.com", "Subject: Hi\r\n\r\nHello.\r\n", false, 0},
    {"joining", "dora@example.com", "\r\n# subscribe\r\n", true, 0},
    {"of a new member", "dora@example.com", "\r\nHello.\r\n", false, 0},
    {"a digest", "dora@example.com", "\r\n# digest\r\n# member\r\n# stat\r\n# help\r\n", true, 0},
    {"archive", "alice@example.net", "\r\n# get all\r\n# summary last:3\r\n", true, 0},
    {"push", "owner-mylist@example.jp", "\r\n# push\r\n", true, 0},
    {"leaving", "dora@example.com", "\r\n# unsubscribe\r\n", true, 0},
    {"unknown command", "alice@example.net", "\r\n# frobnicate\r\n", true, 0},
    {"no command", "alice@example.net", "\r\nHello.\r\n", true, 0},
    {"loop", "alice@example.net", "X-ML-Name: mylist@example.jp\r\n\r\nHello.\r\n", false, 69},
    {"refused", "alice@example.net", "Return-Path: <a@b>\r\n\r\nHello.\r\n", false, 69},
};
static constexpr int MIX_SIZE = sizeof(mix) / sizeof(mix[0]);

void Leaks::deliver_nth(int n)
{
    const auto &row = mix[n % MIX_SIZE];
    const std::string file = list.control("message");
    write_file(file, std::string("From: ") + row.from + "\r\nMessage-ID: <1@x>\r\n" + row.rest);
    ASSERT_EQ(row.code, deliver(file, row.command)) << row.label;
    (void)take_log();
}

void Leaks::read_archive()
{
    MailboxHandle *box = list_mbx_open(list.box().c_str(), MAILBOX_QUIET);
    ASSERT_NE(nullptr, box);
    char envelope[] = "ENVELOPE", structure[] = "BODYSTRUCTURE", text[] = "BODY[]";
    char *items[] = {envelope, structure, text, nullptr};
    mlmbx_fetch(box, 1, items);
    EXPECT_EQ(1, mlmbx_search(box, "OR SUBJECT Hi TEXT Hello", nullptr, 0));
    EXPECT_EQ(0, mlmbx_search(box, "OR (", nullptr, 0));
    mlmbx_checknewmail(box);
    list_mbx_close(box);
    (void)take_log();
}

/* -- what a process has -- */

struct Holdings {
    size_t allocated, pages, descriptors;
};

static Holdings holdings()
{
    Holdings held = {};
    const struct mallinfo2 heap = mallinfo2();
    held.allocated = heap.uordblks + heap.hblkhd;
    FILE *file = fopen("/proc/self/statm", "re");
    EXPECT_TRUE(file != nullptr && fscanf(file, "%zu", &held.pages) == 1);
    if (file != nullptr) fclose(file);
    held.descriptors = list_directory("/proc/self/fd").size();
    return held;
}

static void expect_no_more(const Holdings &before, const Holdings &after)
{
    EXPECT_EQ(before.descriptors, after.descriptors);
#ifndef __SANITIZE_ADDRESS__ /* which keeps what was freed, and looks for itself at the end */
    EXPECT_LE(after.allocated, before.allocated + SLACK);
    EXPECT_LE(after.pages, before.pages + 256);
#endif
}

/* Compared at the ends of rounds, when the list is as it was. */
TEST_F(Leaks, TenThousandDeliveriesLeaveNoMore)
{
    Holdings early = {};
    for (int round = 0; round * MIX_SIZE < 10000; ++round) {
        if (round * MIX_SIZE >= 1000 && early.descriptors == 0) early = holdings();
        for (int n = 0; n < MIX_SIZE; ++n)
            ASSERT_NO_FATAL_FAILURE(deliver_nth(n));
        read_archive();
    }
    expect_no_more(early, holdings());
}

/* What a thread keeps for itself goes with it. */
TEST_F(Leaks, ThreadsThatEndTakeTheirMemoryAlong)
{
    Holdings early = {};
    for (int round = 0; round < 80; ++round) {
        if (round == 20) early = holdings();
        for (int n = 0; n < MIX_SIZE; ++n)
            std::thread([this, n] {
                mlist_set_output(nowhere);
                deliver_nth(n);
                read_archive();
            }).join();
        ASSERT_FALSE(HasFatalFailure());
    }
    expect_no_more(early, holdings());
}
