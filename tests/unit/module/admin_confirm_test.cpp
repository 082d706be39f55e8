/* Pending confirmations as tools see them. */
#include "mlist/admin.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <thread>
#include <time.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/support/lock_waiter.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

class Confirmations : public ::testing::Test
{
  protected:
    Confirmations()
    {
        setenv("TZ", "JST-9", 1);
        tzset();
        clock.now = 1794961440; /* 2026-11-18 09:24 */
        session = mlist_session_open("mylist", "example.jp");
    }
    ~Confirmations() override { mlist_session_close(session); }

    static int keep(const PendingConfirmation *pending, void *argument)
    {
        char text[256];
        snprintf(text, sizeof(text), "%s %04d-%02d-%02d %02d:%02d %s %d", pending->address,
                 pending->year, pending->month, pending->day, pending->hour, pending->minute,
                 pending->id, pending->valid);
        static_cast<std::vector<std::string> *>(argument)->push_back(text);
        return 0;
    }
    std::vector<std::string> pending()
    {
        std::vector<std::string> seen;
        EXPECT_EQ(0, mlist_confirm_each(session, keep, &seen));
        return seen;
    }

    TempList list;
    FaultOs clock;
    ListSession *session;
};

using Lines = std::vector<std::string>;

TEST_F(Confirmations, AreShownWithTheCalendarOfPeople)
{
    list.put("confirm", "a@x.jp 0126/10/18:09:24 0123456789ABCDEF\r\n"
                        "b@x.jp 0126/10/18:09:23 0123456789ABCDEF\r\n"
                        "c@x.jp 0127/00/01:00:00 FEDCBA9876543210\r\n");
    EXPECT_EQ((Lines{"a@x.jp 2026-11-18 09:24 0123456789ABCDEF 1",
                     "b@x.jp 2026-11-18 09:23 0123456789ABCDEF 0",
                     "c@x.jp 2027-01-01 00:00 FEDCBA9876543210 1"}),
              pending());
    clock.now += 60;
    EXPECT_EQ("a@x.jp 2026-11-18 09:24 0123456789ABCDEF 0", pending()[0]);
}

TEST_F(Confirmations, LinesThatCannotBeReadHaveNoId)
{
    list.put("confirm", "a@x.jp\r\n"
                        "\r\n"
                        "b@x.jp tomorrow 0123456789ABCDEF\r\n"
                        "c@x.jp 0126/10/18:09:24 \r\n"
                        "d@x.jp 99999999999999999999/99999999999/1:1:1 ID\n");
    const Lines seen = pending();
    ASSERT_EQ(5u, seen.size());
    EXPECT_EQ(" 0000-00-00 00:00  0", seen[0]);
    EXPECT_EQ("b@x.jp 0000-00-00 00:00  0", seen[2]);
    EXPECT_EQ("c@x.jp 0000-00-00 00:00  0", seen[3]);
}

TEST_F(Confirmations, CleaningKeepsTheExpiryMinute)
{
    const std::string valid = "a@x.jp 0126/10/18:09:24 0123456789ABCDEF\r\n";
    list.put("confirm", "b@x.jp 0126/10/18:09:23 0123456789ABCDEF\r\n" + valid + "noise\r\n");
    EXPECT_EQ(0, mlist_confirm_clean(session));
    EXPECT_EQ(valid, list.get("confirm"));
    clock.now += 60;
    EXPECT_EQ(0, mlist_confirm_clean(session));
    EXPECT_EQ("", list.get("confirm"));
    EXPECT_EQ(Lines{}, pending());
}

TEST_F(Confirmations, AMissingFileIsAFailure)
{
    unlink(list.control("confirm").c_str());
    Lines seen;
    EXPECT_EQ(-1, mlist_confirm_each(session, keep, &seen));
    EXPECT_TRUE(logged_prefix(448, "mlname=mylist confirm list open error No such file"));
    EXPECT_EQ(-1, mlist_confirm_clean(session));
    mkdir(list.control("confirm.lock").c_str(), 0700);
    EXPECT_EQ(-1, mlist_confirm_each(session, keep, &seen));
}

TEST_F(Confirmations, AreReadUnderTheirOwnLockToo)
{
    list.put("confirm", "a@x.jp 0126/10/18:09:24 0123456789ABCDEF\r\n");
    const int fd = open(list.control("confirm.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0700);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    std::thread holder([&] {
        wait_for_a_waiter(fd);
        list.put("confirm", "");
        flock(fd, LOCK_UN);
    });
    EXPECT_EQ(Lines{}, pending());
    holder.join();
    close(fd);
}

TEST_F(Confirmations, AVisitorMayStop)
{
    list.put("confirm", "a@x.jp 0126/10/18:09:24 0123456789ABCDEF\r\nnoise\r\n");
    EXPECT_EQ(5, mlist_confirm_each(
                     session, [](const PendingConfirmation *, void *) { return 5; }, nullptr));
}
