/* What FETCH and SEARCH ask of the kernel. */
#include <gtest/gtest.h>

#include <algorithm>

#include "mlist/search.h"
#include "tests/support/fault_os.h"
#include "tests/unit/archive_fetch/reader.h"

static constexpr int MESSAGES = 20;

static std::vector<std::string> messages()
{
    const std::string mail = crlf("From: a@b\nSubject: s\nContent-Type: text/plain\n\nhello\n");
    return std::vector<std::string>(MESSAGES, mail);
}

/* The calls without the names of files. */
static std::vector<std::string> calls_during(const std::function<void()> &work)
{
    FaultOs os_calls;
    (void)printed(work);
    std::vector<std::string> names;
    for (const std::string &call : os_calls.calls)
        names.push_back(call.substr(0, call.find(' ')));
    return names;
}

static void fetch_all(Reader *reader, const char *item)
{
    for (int s = 1; s <= MESSAGES; ++s)
        (void)reader->items({item}, s);
}

TEST(Calls, TheFlagsOfAllMessagesTakeOneReadOfTheIndex)
{
    Reader reader(messages());
    const auto calls = calls_during([&] {
        MailboxHandle *handle = list_mbx_open(reader.box().path(), MAILBOX_READ_ONLY);
        char item[] = "FLAGS";
        char *items[] = {item, nullptr};
        for (int s = 1; s <= MESSAGES; ++s)
            mlmbx_fetch(handle, s, items);
        list_mbx_close(handle);
    });
    EXPECT_EQ(1, std::count_if(calls.begin(), calls.end(), [](const std::string &call) {
                  return call == "read" || call == "pread";
              }));
    EXPECT_EQ(std::vector<std::string>(), calls_during([&] { fetch_all(&reader, "FLAGS"); }));
}

static const std::vector<std::string> one_read = {"open", "pread", "close"};

static std::vector<std::string> times(int count, const std::vector<std::string> &calls)
{
    std::vector<std::string> all;
    for (; count > 0; --count)
        all.insert(all.end(), calls.begin(), calls.end());
    return all;
}

TEST(Calls, AnItemTakesOneReadOfAMessage)
{
    for (const char *item : {"ENVELOPE", "BODYSTRUCTURE", "BODY", "BODY.PEEK[]", "RFC822.TEXT",
                             "BODY.PEEK[HEADER]", "BODY.PEEK[HEADER.FIELDS (SUBJECT)]"}) {
        Reader reader(messages());
        std::vector<std::string> calls;
        for (int s = 1; s <= MESSAGES; ++s)
            for (const std::string &call : calls_during([&] {
                     (void)reader.items({item}, s);
                     list_mbx_freecache(reader.handle());
                 }))
                calls.push_back(call);
        EXPECT_EQ(times(MESSAGES, one_read), calls) << item;
    }
}

TEST(Calls, ItemsOfOneMessageShareOneRead)
{
    Reader reader(messages());
    EXPECT_EQ(one_read, calls_during([&] {
                  (void)reader.items({"ENVELOPE", "BODYSTRUCTURE", "BODY.PEEK[HEADER]"});
                  list_mbx_freecache(reader.handle());
              }));
}

TEST(Calls, ATextKeyTakesOneReadOfAMessage)
{
    for (const char *criteria : {"SUBJECT none", "TEXT none", "BODY none", "FROM none"}) {
        Reader reader(messages());
        std::vector<std::string> expected = times(MESSAGES, one_read);
        expected.insert(expected.begin(), "open"); /* the directory */
        expected.push_back("close");
        EXPECT_EQ(expected, calls_during([&] {
                      EXPECT_EQ(1, mlmbx_search(reader.handle(), criteria, nullptr, 0));
                  }))
            << criteria;
    }
}

/* A directory that cannot be opened makes a search slower, not different. */
TEST(Calls, ASearchWithoutADescriptorForTheDirectoryGoesByPaths)
{
    Reader reader(messages());
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &path) {
        return call == "open" && path.ends_with("/#msg") ? EMFILE : 0;
    };
    std::string expected = "* SEARCH";
    for (int s = 1; s <= MESSAGES; ++s)
        expected += " " + std::to_string(s);
    EXPECT_EQ(expected + "\r\n", printed([&] {
                  EXPECT_EQ(1, mlmbx_search(reader.handle(), "SUBJECT s", nullptr, 0));
              }));
}
