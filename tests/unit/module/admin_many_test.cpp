/* Changes of many members at once: what one after the other would leave, in one rewrite. */
#include "mlist/admin.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "mlist/mlist.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"
#include "tests/support/without_sync.h"

namespace
{

using Words = std::vector<std::string>;

enum Operation { ADD, REMOVE, SET_ON, SET_OFF, SET_DIGEST, OPERATIONS };

int do_many(ListSession *session, int operation, const Words &addresses, std::vector<int> *results)
{
    std::vector<const char *> texts;
    for (const std::string &address : addresses)
        texts.push_back(address.c_str());
    results->assign(addresses.size(), 7);
    const size_t count = texts.size();
    if (operation == ADD)
        return mlist_member_add_many(session, texts.data(), count, results->data());
    if (operation == REMOVE)
        return mlist_member_remove_many(session, texts.data(), count, results->data());
    return mlist_member_set_status_many(session, texts.data(), count, 1 + operation - SET_ON,
                                        results->data());
}

int do_one(ListSession *session, int operation, const std::string &address)
{
    if (operation == ADD) return mlist_member_add(session, address.c_str());
    if (operation == REMOVE) return mlist_member_remove(session, address.c_str());
    return mlist_member_set_status(session, address.c_str(), 1 + operation - SET_ON);
}

struct Found {
    std::string member, active, digest;
    std::vector<int> results;
};

/* On a list of its own, whose derived files agree with the roster. */
Found after(const std::string &roster, int operation, const Words &addresses, bool at_once)
{
    TempList list;
    list.put("member", roster);
    ListSession *session = mlist_session_open("mylist", "example.jp");
    (void)mlist_derive(session, "active");
    (void)mlist_derive(session, "digest");
    Found found;
    if (at_once)
        EXPECT_EQ(0, do_many(session, operation, addresses, &found.results));
    else
        for (const std::string &address : addresses)
            found.results.push_back(do_one(session, operation, address));
    mlist_session_close(session);
    found.member = list.get("member");
    found.active = list.get("active");
    found.digest = list.get("digest");
    EXPECT_FALSE(exists(list.control("member.new")) || exists(list.control("member.old")));
    return found;
}

void expect_the_same(const std::string &roster, int operation, const Words &addresses)
{
    const Found one_by_one = after(roster, operation, addresses, false);
    const Found at_once = after(roster, operation, addresses, true);
    EXPECT_TRUE(one_by_one.member == at_once.member) << one_by_one.member << "\n" << at_once.member;
    EXPECT_EQ(one_by_one.active, at_once.active);
    EXPECT_EQ(one_by_one.digest, at_once.digest);
    EXPECT_EQ(one_by_one.results, at_once.results);
}

TEST(AdminMany, LeavesWhatOneAfterTheOtherWould)
{
    static const struct {
        const char *label, *roster;
        Words addresses;
    } rows[] = {
        {"an empty roster", "", {"a@x", "b@x", "A@X"}},
        {"nobody", "a@x ON \r\n", {}},
        {"all known", "a@x ON \r\nb@x OFF\r\n", {"B@x", "a@X"}},
        {"known, new, known", "a@x ON \r\nb@x DGT\r\n", {"a@x", "n@x", "b@x", "m@x"}},
        {"the same in other letters", "a@x OFF\r\n", {"n@x", "N@x", "A@x", "a@x", "n@X"}},
        {"one address is the beginning of the other", "ab@x ON \r\n", {"a", "ab", "ab@", "ab@x"}},
        {"no line end", "a@x ON \r\nb@x OFF", {"n@x", "m@x", "b@x"}},
        {"line feeds alone", "a@x ON \nb@x OFF\nc@x DGT\n", {"c@x", "n@x", "a@x"}},
        {"short words", "a@x ON\nb@x OF\r\nc@x ON\r\nd@x ON", {"d@x", "a@x", "c@x", "b@x"}},
        {"unknown words", "a@x QUT\r\nb@x\r\n\r\na@x ON \r\n c@x ON \r\n", {"a@x", "b@x", "c@x"}},
        {"several lines of one", "a@x ON \r\nb@x ON \r\na@x DGT\r\nA@x OFF\r\n", {"A@X", "b@x"}},
        {"long words", "a@x OFFLINE\r\nb@x ONX\r\nc@x ON \r\n", {"b@x", "c@x", "a@x"}},
    };
    WithoutSync quick;
    for (const auto &row : rows)
        for (int operation = 0; operation < OPERATIONS; ++operation) {
            SCOPED_TRACE(std::string(row.label) + ", operation " + std::to_string(operation));
            expect_the_same(row.roster, operation, row.addresses);
        }
}

/* Over several read blocks, with lines of every kind across their borders. */
TEST(AdminMany, LeavesTheSameOfLongRostersOfAnyKind)
{
    static const char *const words[] = {"ON ", "OFF", "DGT", "ON", "on", "QUT", "OFFLINE", ""};
    static const char *const ends[] = {"\r\n", "\r\n", "\n"};
    WithoutSync quick;
    std::mt19937 random(7);
    const auto below = [&](size_t number) { return random() % number; };
    for (int round = 0; round < 8; ++round) {
        std::string roster;
        const size_t size = 1000 + below(20000);
        while (roster.size() < size)
            roster += std::string(below(60), 'm') + std::to_string(below(300)) + "@x " +
                      words[below(8)] + ends[below(3)];
        if (round % 3 == 0) roster += std::string(5000, 'l') + " ON \r\n";
        Words addresses;
        for (size_t at = 0; at < roster.size() && addresses.size() < 15; at += 1 + below(2000)) {
            const size_t start = roster.find('\n', at);
            const size_t blank = start == roster.npos ? start : roster.find(' ', start);
            if (blank == roster.npos || blank - start > 1000) break;
            addresses.push_back(roster.substr(start + 1, blank - start - 1));
            if (addresses.size() % 5 == 0) addresses.push_back(std::to_string(at) + "@new");
        }
        for (int operation = 0; operation < OPERATIONS; ++operation) {
            SCOPED_TRACE(std::to_string(round) + ", operation " + std::to_string(operation));
            expect_the_same(roster, operation, addresses);
        }
    }
    (void)take_log();
}

/* -- all or none -- */

TEST(AdminMany, OneWordThatIsNoneAndNobodyIsAdded)
{
    TempList list;
    list.put("member", "a@x ON \r\n");
    ListSession *session = mlist_session_open("mylist", "example.jp");
    std::vector<int> results;
    errno = 0;
    EXPECT_EQ(-1,
              do_many(session, ADD, {"n@x", "", "a@x", "m @x", std::string(1001, 'l')}, &results));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ((std::vector<int>{0, -1, 0, -1, -1}), results);
    EXPECT_EQ("a@x ON \r\n", list.get("member"));

    const char *known = "a@x";
    for (const int status : {0, 4, -1}) {
        errno = 0;
        EXPECT_EQ(-1, mlist_member_set_status_many(session, &known, 1, status, results.data()));
        EXPECT_EQ(EINVAL, errno);
    }
    mlist_session_close(session);
}

/* What the disk is asked for does not depend on how many there are. */
TEST(AdminMany, TheRosterIsRewrittenOnce)
{
    const auto syncs = [](int operation, int count) {
        TempList list;
        std::string roster;
        Words addresses;
        for (int i = 0; i < count; ++i) {
            addresses.push_back("m" + std::to_string(i) + "@x");
            if (operation != ADD) roster += addresses.back() + " OFF\r\n";
        }
        list.put("member", roster);
        ListSession *session = mlist_session_open("mylist", "example.jp");
        int made = 0;
        std::vector<int> results;
        {
            FaultOs faults;
            faults.before = [&](const std::string &call, const std::string &) {
                made += call == "fsync";
                return 0;
            };
            EXPECT_EQ(0, do_many(session, operation, addresses, &results));
        }
        mlist_session_close(session);
        EXPECT_EQ(std::vector<int>(addresses.size(), 1), results);
        return made;
    };
    WithoutSync quick;
    for (const int operation : {ADD, REMOVE, SET_ON}) {
        EXPECT_LT(0, syncs(operation, 1)) << operation;
        EXPECT_EQ(syncs(operation, 1), syncs(operation, 2000)) << operation;
    }
}

TEST(AdminMany, NothingToChangeRewritesNothing)
{
    TempList list;
    list.put("member", "a@x ON \r\n");
    ListSession *session = mlist_session_open("mylist", "example.jp");
    std::vector<int> results;
    {
        FaultOs faults;
        faults.before = [](const std::string &call, const std::string &) {
            return call == "write" || call == "pwrite" || call == "rename" ? EIO : 0;
        };
        EXPECT_EQ(0, do_many(session, ADD, {"A@x", "a@X"}, &results));
        EXPECT_EQ((std::vector<int>{0, 0}), results);
        EXPECT_EQ(0, do_many(session, REMOVE, {"n@x", "m@x"}, &results));
        EXPECT_EQ(0, do_many(session, SET_OFF, {"n@x", "m@x"}, &results));
        EXPECT_EQ((std::vector<int>{0, 0}), results);
    }
    mlist_session_close(session);
    EXPECT_EQ("a@x ON \r\n", list.get("member"));
}

} // namespace
