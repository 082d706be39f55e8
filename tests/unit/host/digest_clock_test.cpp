/* When digests are pushed: days going by, failures, requests. */
#include <gtest/gtest.h>

#include <set>

#include "host/base/digest_files.h"
#include "host/mlistd/digest/clock.h"
#include "host/mlistd/digest/rounds.h"
#include "mlog.h"
#include "tests/unit/host/digest_time.h"
#include "tests/unit/host/scratch.h"

namespace
{

constexpr const char *BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";

/* Lists that only remember. */
struct FakeLists : DigestLists {
    struct List {
        Result<int> minute = 13 * 60;
        std::optional<time_t> since = 1;
        Push answer = Push::done;
    };
    std::map<std::string, List> lists;
    std::vector<std::string> pushed; /* "LIST@DOMAIN", in order */
    std::function<void()> on_push = [] {};

    static ListAddress address(const std::string &name) { return *parse_list_name(name, {}); }
    std::vector<ListAddress> all() override
    {
        std::vector<ListAddress> addresses;
        for (const auto &[name, list] : lists)
            addresses.push_back(address(name));
        return addresses;
    }
    bool exists(const ListAddress &list) override { return lists.contains(list.name()); }
    Result<int> digest_minute(const ListAddress &list) override
    {
        return lists[list.name()].minute;
    }
    std::optional<time_t> exists_since(const ListAddress &list) override
    {
        return lists[list.name()].since;
    }
    Push push(const ListAddress &list, time_t) override
    {
        pushed.push_back(list.name());
        on_push();
        return lists[list.name()].answer;
    }
    std::vector<std::string> taken() { return std::exchange(pushed, {}); }
};

using Names = std::vector<std::string>;

class DigestRoundsTest : public testing::Test
{
  protected:
    DigestRoundsTest()
    {
        set_zone("UTC");
        mlog_set_target("none");
        settings.data_directory = scratch.path();
        EXPECT_TRUE(make_digest_directories(settings));
        lists.lists["a@d"];
        restart();
    }
    ~DigestRoundsTest() override { set_zone("UTC"); }

    void restart() { rounds = std::make_unique<DigestRounds>(settings, lists); }

    /* What is pushed at that moment, the steady clock running along from 0. */
    Names tick(time_t wall)
    {
        if (begin == 0) begin = wall;
        return tick(wall, (wall - begin) * 1000);
    }
    Names tick(time_t wall, int64_t steady_ms)
    {
        rounds->tick({wall, steady_ms});
        return lists.taken();
    }
    Names tick(const std::string &time) { return tick(at(time)); }

    void ask(const std::string &name) { scratch.write("digest/asked/" + name, ""); }
    Names asked() { return names_in(scratch.path("digest/asked")); }

    Scratch scratch;
    Settings settings;
    FakeLists lists;
    std::unique_ptr<DigestRounds> rounds;
    time_t begin = 0;
    const Names none, once{"a@d"};
};

} // namespace

/* -- days going by -- */

TEST_F(DigestRoundsTest, EveryListIsPushedOnceADayAtItsMinute)
{
    lists.lists["b@d"].minute = 7 * 60 + 30;
    Names pushes;
    for (time_t now = at("11-21 00:00"); now < at("11-23 00:00"); now += 20)
        for (const std::string &name : tick(now))
            pushes.push_back(name + " " + std::to_string((now - at("11-21 00:00")) / 60));
    /* Both are old and without a record: yesterday's push is made up for at once. */
    EXPECT_EQ(pushes, (Names{"a@d 0", "b@d 0", "b@d 450", "a@d 780", "b@d 1890", "a@d 2220"}));
}

TEST_F(DigestRoundsTest, AMissedMinuteIsMadeUpForOnce)
{
    EXPECT_EQ(tick("11-20 13:00"), once);
    restart(); /* down from then on */
    EXPECT_EQ(tick("11-24 15:12"), once);
    EXPECT_EQ(tick("11-24 15:13"), none);
    EXPECT_EQ(tick("11-25 12:59"), none);
    EXPECT_EQ(tick("11-25 13:00"), once);
}

TEST_F(DigestRoundsTest, ARestartPushesNothingTwice)
{
    EXPECT_EQ(tick("11-21 13:00"), once);
    restart();
    EXPECT_EQ(tick("11-21 13:00"), none);
    EXPECT_EQ(tick("11-21 13:30"), none);
    restart();
    EXPECT_EQ(tick("11-22 13:00"), once);
}

TEST_F(DigestRoundsTest, ANewListWaitsForItsFirstMinute)
{
    lists.lists["a@d"].since = at("11-21 14:00");
    EXPECT_EQ(tick("11-21 14:01"), none);
    restart();
    EXPECT_EQ(tick("11-21 15:00"), none);
    EXPECT_EQ(tick("11-22 13:00"), once);
}

TEST_F(DigestRoundsTest, AListOfUnknownAgeIsTakenOverAtFirstSight)
{
    lists.lists["a@d"].since = std::nullopt;
    EXPECT_EQ(tick("11-21 12:00"), none);
    EXPECT_EQ(tick("11-21 13:00"), once);
    EXPECT_EQ(tick("11-22 13:00"), once);
}

TEST_F(DigestRoundsTest, AChangedMinuteGivesNoSecondDigestOfADay)
{
    EXPECT_EQ(tick("11-20 13:00"), once);
    lists.lists["a@d"].minute = 15 * 60;
    EXPECT_EQ(tick("11-20 15:00"), none) << "later on the same day";
    EXPECT_EQ(tick("11-21 13:00"), none);
    EXPECT_EQ(tick("11-21 15:00"), once);
    lists.lists["a@d"].minute = 60;
    EXPECT_EQ(tick("11-22 00:59"), none);
    EXPECT_EQ(tick("11-22 01:00"), once);
    lists.lists["a@d"].minute = 13 * 60;
    EXPECT_EQ(tick("11-22 13:00"), none);
    EXPECT_EQ(tick("11-23 12:00"), none);
    lists.lists["a@d"].minute = 60;
    EXPECT_EQ(tick("11-23 12:01"), once) << "moved to a minute of today that is over";
}

TEST_F(DigestRoundsTest, ASkippedHourDelaysADigestAndARepeatedOneDoesNotDoubleIt)
{
    set_zone(BERLIN);
    lists.lists["a@d"].minute = 2 * 60 + 30;
    EXPECT_EQ(tick("03-28 02:30"), once);
    EXPECT_EQ(tick("03-29 01:59"), none);
    EXPECT_EQ(tick("03-29 03:00"), once) << "there is no 02:30";
    EXPECT_EQ(tick("03-29 03:30"), none);

    EXPECT_EQ(tick("10-24 02:30"), once);
    EXPECT_EQ(tick(at("10-25 02:30", 1)), once);
    EXPECT_EQ(tick(at("10-25 02:00", 0)), none) << "the hour again";
    EXPECT_EQ(tick(at("10-25 02:30", 0)), none);
    EXPECT_EQ(tick("10-26 02:30"), once);
}

TEST_F(DigestRoundsTest, AClockThatIsSetDoublesNothing)
{
    EXPECT_EQ(tick("11-21 13:00"), once);
    EXPECT_EQ(tick("11-21 12:00"), none) << "an hour back";
    EXPECT_EQ(tick("11-21 13:00"), none);
    EXPECT_EQ(tick("11-22 13:00"), once);
    EXPECT_EQ(tick("11-21 18:00"), none) << "a day back";
    EXPECT_EQ(tick("11-22 13:00"), none);
    EXPECT_EQ(tick("11-23 13:00"), once);
    EXPECT_EQ(tick("11-29 08:00"), once) << "days forward: one push for all of them";
    EXPECT_EQ(tick("11-23 14:00"), none) << "and back: what was recorded meanwhile is not believed";
    EXPECT_EQ(tick("11-24 13:00"), once);
}

TEST_F(DigestRoundsTest, ARecordThatCannotBeWrittenHoldsInMemory)
{
    std::filesystem::create_directory(scratch.path("digest/making"));
    EXPECT_EQ(tick("11-21 13:00"), once);
    EXPECT_EQ(tick("11-21 13:01"), none);
    EXPECT_EQ(tick("11-22 13:00"), once);
}

/* -- failures -- */

TEST_F(DigestRoundsTest, AFailedPushIsRepeatedWithGrowingPausesUntilItSucceeds)
{
    lists.lists["b@d"];
    lists.lists["a@d"].answer = DigestLists::Push::failed;
    const time_t start = at("11-21 13:00");
    std::vector<time_t> tries;
    for (time_t now = start; now < start + 3 * 3600; ++now)
        for (const std::string &name : tick(now))
            if (name == "a@d") tries.push_back((now - start) / 60);
    EXPECT_EQ(tries, (std::vector<time_t>{0, 1, 3, 7, 15, 31, 61, 91, 121, 151}));
    EXPECT_TRUE(names_in(scratch.path("digest")) == (Names{"asked", "b@d.day"}));

    lists.lists["a@d"].answer = DigestLists::Push::done;
    EXPECT_EQ(tick("11-21 16:01"), once);
    EXPECT_EQ(tick("11-21 20:00"), none);
    lists.lists["a@d"].answer = DigestLists::Push::failed;
    EXPECT_EQ(tick("11-22 13:00"), (Names{"a@d", "b@d"}));
    EXPECT_EQ(tick("11-22 13:01"), once) << "the pauses begin anew";
}

TEST_F(DigestRoundsTest, ThePausesDoNotFollowAClockThatIsSet)
{
    scratch.write("digest/a@d.day", "2026-11-20\n");
    lists.lists["a@d"].answer = DigestLists::Push::failed;
    EXPECT_EQ(tick(at("11-21 13:00"), 0), once);
    EXPECT_EQ(tick(at("11-21 18:00"), 59'999), none);
    EXPECT_EQ(tick(at("11-21 12:00"), 60'000), none) << "not due by this clock";
    EXPECT_EQ(tick(at("11-21 13:00"), 61'000), once);
}

TEST_F(DigestRoundsTest, ABusyListIsTriedEverySecond)
{
    lists.lists["a@d"].answer = DigestLists::Push::busy;
    const time_t start = at("11-21 13:00");
    EXPECT_EQ(tick(start), once);
    EXPECT_EQ(tick(start + 1), once);
    lists.lists["a@d"].answer = DigestLists::Push::done;
    EXPECT_EQ(tick(start + 2), once);
    EXPECT_EQ(tick(start + 3), none);
}

TEST_F(DigestRoundsTest, SettingsThatCannotBeReadDelayOnlyTheirList)
{
    lists.lists["a@d"].minute = Error{"held", EWOULDBLOCK};
    lists.lists["b@d"].minute = Error{"broken", EIO};
    lists.lists["c@d"];
    const time_t start = at("11-21 13:00");
    EXPECT_EQ(tick(start), Names{"c@d"});
    lists.lists["a@d"].minute = lists.lists["b@d"].minute = 780;
    EXPECT_EQ(tick(start + 1), once);
    EXPECT_EQ(tick(start + 59), none);
    EXPECT_EQ(tick(start + 60), Names{"b@d"});
}

TEST_F(DigestRoundsTest, NoFurtherPushIsBegunOnceTheEndHasCome)
{
    lists.lists["b@d"];
    lists.on_push = [this] { rounds->end(); };
    EXPECT_EQ(tick("11-21 13:00"), once);
    restart();
    EXPECT_EQ(tick("11-21 13:01"), Names{"b@d"}) << "the first one had been recorded";
}

/* -- requests -- */

TEST_F(DigestRoundsTest, APushThatWasAskedForIsDoneWithinATickBesideTheDaysOwn)
{
    EXPECT_EQ(tick("11-21 13:00"), once);
    ask("a@d");
    EXPECT_EQ(tick(at("11-21 13:00") + 1), once);
    EXPECT_EQ(asked(), none);
    EXPECT_EQ(tick(at("11-21 13:00") + 2), none);
    ask("a@d");
    EXPECT_EQ(tick("11-22 12:00"), once);
    EXPECT_EQ(tick("11-22 13:00"), once) << "the day's own";
}

TEST_F(DigestRoundsTest, ARequestOutlivesFailureAndRestart)
{
    EXPECT_EQ(tick("11-21 13:00"), once);
    lists.lists["a@d"].answer = DigestLists::Push::failed;
    ask("a@d");
    const time_t start = at("11-21 13:10");
    EXPECT_EQ(tick(start), once);
    EXPECT_EQ(tick(start + 30), none);
    EXPECT_EQ(asked(), once);
    restart();
    lists.lists["a@d"].answer = DigestLists::Push::done;
    EXPECT_EQ(tick(start + 40), once);
    EXPECT_EQ(asked(), none);
}

TEST_F(DigestRoundsTest, StrayFilesAreNoRequests)
{
    EXPECT_EQ(tick("11-21 13:00"), once);
    for (const char *name : {"nolist@d", "a", "owner-a@d", "A@D"})
        ask(name);
    std::filesystem::create_symlink("/dev/null", scratch.path("digest/asked/b@d"));
    lists.lists["b@d"].since = at("11-21 13:30");
    std::filesystem::create_directory(scratch.path("digest/asked/c@d"));
    lists.lists["c@d"].since = at("11-21 13:30");
    const Names pushed = tick("11-21 13:31");
    EXPECT_EQ(pushed, once) << "A@D is a@d";
    EXPECT_EQ(asked(), Names{"c@d"}) << "what cannot be unlinked stays";
}

/* -- the thread -- */

TEST_F(DigestRoundsTest, TheThreadLooksAtOnceAndEndsAtOnce)
{
    ask("a@d");
    lists.lists["a@d"].since = time(nullptr);
    lists.lists["a@d"].minute = 0;
    const auto start = std::chrono::steady_clock::now();
    {
        DigestClock clock(*rounds);
        while (!asked().empty() &&
               std::chrono::steady_clock::now() - start < std::chrono::minutes(1))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(lists.taken().front(), "a@d");
    EXPECT_EQ(asked(), none);
}
