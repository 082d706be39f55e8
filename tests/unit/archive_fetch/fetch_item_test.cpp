/* Items and responses of FETCH. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

using Lines = std::vector<std::string>;

static const std::string simple = "Subject: s\r\n\r\nhello";
static const std::string big_text = "Subject: s\r\n\r\n";

TEST(Fetch, RefusesNumbersThatNoMessageHas)
{
    Reader reader(simple);
    for (const int sequence : {0, 2, -1, 1000000})
        EXPECT_EQ("* NO fetch " + std::to_string(sequence) + " fail, out of range\r\n",
                  reader.fetch({"FLAGS"}, sequence));
    EXPECT_EQ("* NO fetch 1 fail, out of range\r\n",
              printed([] { mlmbx_fetch(nullptr, 1, nullptr); }));
}

TEST(Fetch, AnswersNoItemsWithAnEmptyList)
{
    Reader reader(simple);
    EXPECT_EQ("* 1 FETCH ()\r\n", reader.fetch({}));
    EXPECT_EQ("* 1 FETCH ()\r\n", printed([&] { mlmbx_fetch(reader.handle(), 1, nullptr); }));
}

TEST(Fetch, AnswersNilForAnUnknownItemAndLogsIt)
{
    Reader reader(simple);
    char item[] = "XYZ%s";
    char *items[] = {item, nullptr};
    take_log();
    EXPECT_EQ("* 1 FETCH (XYZ%s NIL)\r\n",
              printed([&] { mlmbx_fetch(reader.handle(), 1, items); }));
    const int number = static_cast<int>(reinterpret_cast<intptr_t>(&item[0]));
    EXPECT_EQ(Lines({"3/619 mbx_fetch: invalid item " + std::to_string(number)}), take_log_lines());
}

TEST(Fetch, TouchesNoMessageFileForFlags)
{
    Reader reader(simple);
    FaultOs fault;
    EXPECT_EQ("* 1 FETCH (FLAGS () UID 7 RFC822.SIZE 19)\r\n",
              reader.fetch({"FLAGS", "UID", "RFC822.SIZE"}));
    EXPECT_TRUE(fault.calls.empty()) << fault.calls.front();
}

TEST(Fetch, TakesNoLock)
{
    Reader reader(simple);
    const int fd = open(reader.box().name("#mix").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX | LOCK_NB)); /* were it wanted, this would never end */
    EXPECT_EQ("BODY[1] {5}\r\nhello FLAGS (\\Seen)", reader.items({"BODY[1]"}));
    close(fd);
}

TEST(Fetch, GivesUpALockThatACheckLeftBehind)
{
    Reader reader(simple);
    Records records = reader.box().index();
    records[0].flags = Box::validity + 1;
    reader.box().put_index(records);
    reader.box().age(-10);
    printed([&] { mlmbx_checknewmail2(reader.handle()); });
    const int fd = open(reader.box().name("#mix").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(-1, flock(fd, LOCK_EX | LOCK_NB));
    EXPECT_EQ("* 1 FETCH (UID 7)\r\n", reader.fetch({"UID"}));
    EXPECT_EQ(0, flock(fd, LOCK_EX | LOCK_NB));
    close(fd);
}

/* -- \Seen -- */

static const struct {
    const char *item;
    bool seen;
} seen_rows[] = {{"BODY[]", true},          {"BODY[TEXT]", true},    {"BODY[1]", true},
                 {"body[header]", true},    {"BODY[nonsense", true}, {"RFC822", true},
                 {"BODY.PEEK[]", false},    {"RFC822.TEXT", false},  {"RFC822.HEADER", false},
                 {"BODY.PEEK[1]", false},   {"BODY", false},         {"BODYSTRUCTURE", false},
                 {"RFC822.SIZE", false},    {"ENVELOPE", false},     {"FULL", false},
                 {"BODY.PEEK[TEXT]", false}};

TEST(FetchSeen, IsSetByTextsFetchedWithoutPeek)
{
    for (const auto &row : seen_rows) {
        Reader reader(simple);
        const std::string answer = reader.items({row.item});
        const std::string flags = " FLAGS (\\Seen)";
        EXPECT_EQ(row.seen, answer.size() > flags.size() &&
                                answer.substr(answer.size() - flags.size()) == flags)
            << row.item << ": " << answer;
        EXPECT_EQ(row.seen ? MESSAGE_SEEN | MESSAGE_CHANGED : 0u, reader.record(1).flags)
            << row.item;
        EXPECT_EQ(row.seen, (reader.handle()->mode & MAILBOX_FORCE_CHECK) != 0) << row.item;
    }
}

TEST(FetchSeen, IsToldOnceAndOnlyWhenItIsNew)
{
    Reader reader(simple);
    EXPECT_EQ("FLAGS () BODY[] {19}\r\n" + simple + " RFC822 {19}\r\n" + simple + " FLAGS (\\Seen)",
              reader.items({"FLAGS", "BODY[]", "RFC822"}));
    EXPECT_EQ("BODY[] {19}\r\n" + simple, reader.items({"BODY[]"}));
    reader.record(1).flags = MESSAGE_VANISHED;
    EXPECT_EQ("RFC822 \"\"", reader.items({"RFC822"}));
    EXPECT_EQ(uint32_t{MESSAGE_VANISHED}, reader.record(1).flags);
}

TEST(FetchSeen, ReachesTheIndexWithTheNextCheck)
{
    Reader reader(simple);
    reader.fetch({"BODY[]"});
    EXPECT_EQ(0u, reader.box().flags(7));
    mlmbx_checknewmail(reader.handle());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, reader.box().flags(7));
}

TEST(FetchFlags, NamesAllInOrder)
{
    Reader reader(simple);
    reader.record(1).flags = 127;
    EXPECT_EQ("FLAGS (\\Seen \\Answered \\Flagged \\Deleted \\Draft \\Recent $MDNSent)",
              printed([&] { list_mbx_fetch_flags(reader.handle(), 1); }));
    reader.record(1).flags = 127 | MESSAGE_VANISHED;
    EXPECT_EQ("FLAGS ()", printed([&] { list_mbx_fetch_flags(reader.handle(), 1); }));
}

/* -- what is not there -- */

static const struct {
    const char *item, *vanished, *missing;
} empty_rows[] = {
    {"FLAGS", "FLAGS ()", "FLAGS ()"},
    {"UID", "UID 7", "UID 7"},
    {"RFC822.SIZE", "RFC822.SIZE 0", "RFC822.SIZE 19"},
    {"INTERNALDATE", "INTERNALDATE \"00-Jan-0000 00:00:00 +0000\"", "INTERNALDATE NIL"},
    {"RFC822", "RFC822 \"\"", "RFC822 \"\" FLAGS (\\Seen)"},
    {"RFC822.HEADER", "RFC822.HEADER \"\"", "RFC822.HEADER \"\""},
    {"RFC822.TEXT", "RFC822.TEXT \"\"", "RFC822.TEXT \"\""},
    {"ENVELOPE", "ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)",
     "ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)"},
    {"BODY", "BODY (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 0 0)",
     "BODY (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 0 0)"},
    {"BODYSTRUCTURE", "BODYSTRUCTURE (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 0 0 NIL NIL NIL)",
     "BODYSTRUCTURE (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 0 0 NIL NIL NIL)"},
};

TEST(FetchVanished, HasFixedTextsAndReadsNothing)
{
    for (const auto &row : empty_rows) {
        Reader reader(simple);
        reader.record(1).flags = MESSAGE_VANISHED | MESSAGE_FLAGGED;
        take_log();
        FaultOs fault;
        EXPECT_EQ(row.vanished, reader.items({row.item}));
        EXPECT_TRUE(fault.calls.empty()) << row.item;
        EXPECT_TRUE(take_log_lines().empty()) << row.item;
    }
}

TEST(FetchMissingFile, DegradesItemByItem)
{
    Reader reader(simple);
    unlink(reader.file().c_str());
    for (const auto &row : empty_rows)
        EXPECT_EQ(row.missing, reader.items({row.item}));
    take_log();
    reader.fetch({"ENVELOPE", "BODY", "BODYSTRUCTURE", "BODY.PEEK[1]"});
    const std::string open_error = "3/626 mbx_getcache: fopen err No such file or directory";
    EXPECT_EQ(Lines({open_error, "3/624 mbx_fetch envelope: mbx_getcache fail", open_error,
                     "3/620 mbx_fetch_body: mbx_getcache err", open_error,
                     "3/621 mbx_fetch_body: mbx_getcache err", open_error,
                     "3/622 mbx_fetch_body: mbx_getcache err"}),
              take_log_lines());
}

TEST(FetchItems, StandInForAMissingRecord)
{
    Reader reader(simple);
    for (const int sequence : {0, 2, -5}) {
        EXPECT_EQ("FLAGS ()", printed([&] { list_mbx_fetch_flags(reader.handle(), sequence); }));
        EXPECT_EQ("UID 0", printed([&] { list_mbx_fetch_uid(reader.handle(), sequence); }));
        EXPECT_EQ("RFC822 \"\"",
                  printed([&] { list_mbx_fetch_rfc822(reader.handle(), sequence); }));
    }
}

TEST(FetchItems, ArePrintedByThemselves)
{
    Reader reader(simple);
    MailboxHandle *box = reader.handle();
    EXPECT_EQ("UID 7", printed([&] { list_mbx_fetch_uid(box, 1); }));
    EXPECT_EQ("RFC822.SIZE 19", printed([&] { list_mbx_fetch_rfc822_size(box, 1); }));
    EXPECT_EQ("INTERNALDATE \"15-Nov-2026 00:13:58 +0000\"",
              printed([&] { list_mbx_fetch_internaldate(box, 1); }));
    EXPECT_EQ("RFC822.HEADER {14}\r\nSubject: s\r\n\r\n",
              printed([&] { list_mbx_fetch_rfc822_header(box, 1); }));
    EXPECT_EQ("RFC822.TEXT {5}\r\nhello", printed([&] { list_mbx_fetch_rfc822_text(box, 1); }));
    EXPECT_EQ("RFC822 {19}\r\n" + simple, printed([&] { list_mbx_fetch_rfc822(box, 1); }));
    EXPECT_EQ("ENVELOPE (NIL \"s\" NIL NIL NIL NIL NIL NIL NIL NIL)",
              printed([&] { list_mbx_fetch_envelope(box, 1); }));
    const std::string body = "(\"TEXT\" \"PLAIN\" (\"CHARSET\" \"US-ASCII\") NIL NIL \"7BIT\" 5 1";
    EXPECT_EQ("BODY " + body + ")", printed([&] { mlmbx_fetch_body(box, 1); }));
    EXPECT_EQ("BODYSTRUCTURE " + body + " NIL NIL NIL)",
              printed([&] { list_mbx_fetch_bodystructure(box, 1); }));
}

TEST(FetchInternaldate, IsTheTimeOfTheFile)
{
    Reader reader(simple);
    const struct timespec times[2] = {{0, 0}, {951782399, 0}}; /* the last second of 28 February */
    ASSERT_EQ(0, utimensat(AT_FDCWD, reader.file().c_str(), times, 0));
    EXPECT_EQ("INTERNALDATE \"28-Feb-2000 23:59:59 +0000\"", reader.items({"INTERNALDATE"}));
}

TEST(FetchMacros, LeaveTheFlagsOutOfAllAndFast)
{
    Reader reader(simple);
    EXPECT_EQ(std::string::npos, reader.items({"all"}).find("FLAGS"));
    EXPECT_EQ(std::string::npos, reader.items({"Fast"}).find("FLAGS"));
    EXPECT_EQ(0u, reader.items({"full"}).find("FLAGS () INTERNALDATE"));
}

/* -- sizes that are not the file's -- */

TEST(FetchRfc822, AnnouncesTheSizeOfTheIndexAndSendsTheFile)
{
    Reader reader(simple);
    write_file(reader.file(), simple.substr(0, 16));
    EXPECT_EQ("RFC822 {19}\r\nSubject: s\r\n\r\nhe",
              printed([&] { list_mbx_fetch_rfc822(reader.handle(), 1); }));
    EXPECT_EQ("RFC822.TEXT {5}\r\nhe", reader.items({"RFC822.TEXT"}));
    EXPECT_EQ("BODY[] {19}\r\nSubject: s\r\n\r\nhe", reader.items({"BODY.PEEK[]"}));
    EXPECT_EQ("BODY[TEXT] {5}\r\nhe", reader.items({"BODY.PEEK[TEXT]"}));
    EXPECT_EQ("BODY[TEXT]<1> {4}\r\ne", reader.items({"BODY.PEEK[TEXT]<1.9>"}));
    EXPECT_EQ("BODY[1] {2}\r\nhe", reader.items({"BODY.PEEK[1]"})) << "a section is what there is";
    write_file(reader.file(), simple + "more");
    EXPECT_EQ("RFC822 {19}\r\n" + simple + "more",
              printed([&] { list_mbx_fetch_rfc822(reader.handle(), 1); }));
    EXPECT_EQ("BODY[1] {5}\r\nhello", reader.items({"BODY.PEEK[1]"}));
}

TEST(FetchRfc822, SurvivesADamagedIndex)
{
    static const struct {
        uint32_t header_size, size;
    } rows[] = {{19, 5}, {0, 0}, {0xFFFFFFFFu, 0xFFFFFFFFu}, {0, 0xFFFFFFFFu}, {5, 3000000000u}};
    for (const auto &row : rows) {
        Reader reader(simple);
        reader.record(1).header_size = row.header_size;
        reader.record(1).size = row.size;
        for (const char *item :
             {"RFC822", "RFC822.HEADER", "RFC822.TEXT", "BODY", "BODYSTRUCTURE", "ENVELOPE",
              "BODY[]<3000000000.5>", "BODY[TEXT]<1.4294967295>", "BODY[HEADER]<0.4294967295>",
              "BODY[1]", "BODY[1]<0.4294967295>", "BODY[1.MIME]", "BODY[HEADER.FIELDS (SUBJECT)]",
              "BODY[HEADER.FIELDS.NOT (SUBJECT)]"})
            EXPECT_LT(reader.fetch({item}).size(), 200u) << item << " of size " << row.size;
    }
    Reader reader(simple);
    reader.record(1).header_size = 20;
    EXPECT_EQ("RFC822.TEXT {0}\r\n", reader.items({"RFC822.TEXT"})) << "never below nothing";
}

TEST(FetchRfc822, SendsEachReadUpToItsFirstNul)
{
    std::string text(3 * 8188, 'x');
    text.replace(0, big_text.size(), big_text);
    text[100] = '\0';
    text[8188 + 7] = '\0';
    Reader reader(text);
    const std::string answer = printed([&] { list_mbx_fetch_rfc822(reader.handle(), 1); });
    EXPECT_EQ("RFC822 {24564}\r\n" + text.substr(0, 100) + text.substr(8188, 7) +
                  text.substr(2 * 8188),
              answer);
    /* a slice of the text is one string */
    EXPECT_EQ("BODY[TEXT]<0> {24550}\r\n" + text.substr(14, 86),
              reader.items({"BODY.PEEK[TEXT]<0.99999>"}));
}

TEST(FetchRfc822, SendsLargeMessagesWhole)
{
    std::string text = big_text;
    for (int i = 0; i < 30000; ++i)
        text += "line " + std::to_string(i) + "\r\n";
    Reader reader(text);
    EXPECT_EQ("RFC822 {" + std::to_string(text.size()) + "}\r\n" + text,
              printed([&] { list_mbx_fetch_rfc822(reader.handle(), 1); }));
    EXPECT_EQ("BODY[1] {" + std::to_string(text.size() - 14) + "}\r\n" + text.substr(14),
              reader.items({"BODY.PEEK[1]"}));
    EXPECT_EQ("BODY[]<100000> {9}\r\n" + text.substr(100000, 9),
              reader.items({"BODY.PEEK[]<100000.9>"}));
}

TEST(FetchRfc822, PrintsNoTextOfADirectoryInPlaceOfTheFile)
{
    Reader reader(simple);
    unlink(reader.file().c_str());
    ASSERT_EQ(0, mkdir(reader.file().c_str(), 0700));
    EXPECT_EQ("RFC822.TEXT {5}\r\n", reader.items({"RFC822.TEXT"}));
    EXPECT_EQ("BODY[HEADER] \"\"", reader.items({"BODY.PEEK[HEADER]"}));
    EXPECT_EQ("ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)", reader.items({"ENVELOPE"}));
    rmdir(reader.file().c_str());
}
