/* From the wire to a file that meets the module's needs, in any portions. */
#include <gtest/gtest.h>

#include <random>
#include <sys/resource.h>
#include <sys/stat.h>

#include "host/mlistd/lmtp/message.h"
#include "tests/unit/host/scratch.h"

using namespace std::string_literals;

namespace
{

struct Taken {
    std::string text;
    std::string rest; /* what came after the end of the data */
    Reply verdict;
    HeaderFacts facts;
    bool finished;
};

/* Feeds the wire in pieces of the sizes that next_size gives. */
template <typename NextSize>
Taken take(const std::string &wire, NextSize next_size, int64_t limit = 1 << 30)
{
    static const Scratch scratch;
    MessageReceiver receiver(std::move(*MessageFile::create(scratch.path("m"))), limit);
    size_t at = 0;
    while (at < wire.size() && !receiver.finished()) {
        const std::string piece = wire.substr(at, next_size());
        at += receiver.feed(piece);
    }
    Taken taken{"", wire.substr(at), {}, receiver.facts(), receiver.finished()};
    if (taken.finished) taken.verdict = receiver.verdict();
    taken.text = read_file(receiver.file().path());
    return taken;
}

Taken take_whole(const std::string &wire, int64_t limit = 1 << 30)
{
    return take(
        wire, [&] { return wire.size(); }, limit);
}

const struct {
    const char *label;
    std::string wire, text;
} rows[] = {
    {"a plain mail passes unchanged", "Subject: a\r\n\r\nb\r\n.\r\n", "Subject: a\r\n\r\nb\r\n"},
    {"an empty mail is an ended header", ".\r\n", "\r\n"},
    {"a header without a body gets its end", "Subject: a\r\n.\r\n", "Subject: a\r\n\r\n"},
    {"an empty body stays empty", "Subject: a\r\n\r\n.\r\n", "Subject: a\r\n\r\n"},
    {"a dot in front of a line is taken away", "A: b\r\n\r\n..\r\n...x\r\n.y\r\n.\r\n",
     "A: b\r\n\r\n.\r\n..x\r\ny\r\n"},
    {"bare line feeds are line ends", "A: b\n\nc\nd\r\n.\r\n", "A: b\r\n\r\nc\r\nd\r\n"},
    {"a dot between bare line feeds ends nothing", "A: b\r\n\r\nc\n.\nd\r\n.\r\n",
     "A: b\r\n\r\nc\r\n.\r\nd\r\n"},
    {"LF dot CR LF ends nothing", "A: b\r\n\r\nc\n.\r\nd\r\n.\r\n", "A: b\r\n\r\nc\r\n.\r\nd\r\n"},
    {"CR LF dot LF ends nothing", "A: b\r\n\r\nc\r\n.\nd\r\n.\r\n", "A: b\r\n\r\nc\r\n\r\nd\r\n"},
    {"CR LF dot CR x ends nothing", "A: b\r\n\r\nc\r\n.\rd\r\n.\r\n", "A: b\r\n\r\nc\r\n d\r\n"},
    {"CR dot CR ends nothing", "A: b\r\n\r\nc\r.\r\r\n.\r\n", "A: b\r\n\r\nc .\r\n"},
    {"a CR inside a line becomes a blank", "A: b\rC: d\r\n\r\ne\r\rf\r\n.\r\n",
     "A: b C: d\r\n\r\ne f\r\n"},
    {"CRs before a line end vanish", "A: b\r\r\n\r\r\r\nc\r\r\n.\r\n", "A: b\r\n\r\nc\r\n"},
    {"a CR cannot end the header early", "A: b\r\n\rC: d\r\n\r\ne\r\n.\r\n",
     "A: b\r\n C: d\r\n\r\ne\r\n"},
    {"what follows the end is left", "A: b\r\n\r\nc\r\n.\r\nQUIT\r\n", "A: b\r\n\r\nc\r\n"},
    {"Return-Path goes, folded or not",
     "Return-Path: <a@b>\r\n\t(x)\r\nA: b\r\nreturn-path : <>\r\nC: d\r\n\r\nReturn-Path: "
     "stays\r\n.\r\n",
     "A: b\r\nC: d\r\n\r\nReturn-Path: stays\r\n"},
    {"Return-Path alone leaves an ended header", "Return-Path: <>\r\n.\r\n", "\r\n"},
    {"a name that only begins so stays", "Return-Path-X: a\r\nReturn-Pat: b\r\n.\r\n",
     "Return-Path-X: a\r\nReturn-Pat: b\r\n\r\n"},
    {"text without a header is a body", "Hello all,\r\nbye\r\n.\r\n", "\r\nHello all,\r\nbye\r\n"},
    {"a line that is no header line begins the body", "A: b\r\nHello\r\nC: d\r\n.\r\n",
     "A: b\r\n\r\nHello\r\nC: d\r\n"},
    {"a folded line at the top is no header", " A: b\r\nC: d\r\n.\r\n", "\r\n A: b\r\nC: d\r\n"},
    {"a mailbox line at the top stays", "From a@b Sat\r\nA: b\r\n\r\nc\r\n.\r\n",
     "From a@b Sat\r\nA: b\r\n\r\nc\r\n"},
    {"folding stays as it is", "A: b\r\n \r\n\tc\r\n\r\nd\r\n.\r\n",
     "A: b\r\n \r\n\tc\r\n\r\nd\r\n"},
    {"a long header line stays whole", "A: " + std::string(40000, 'x') + "\r\n\r\nb\r\n.\r\n",
     "A: " + std::string(40000, 'x') + "\r\n\r\nb\r\n"},
    {"a long Return-Path goes whole",
     "Return-Path: " + std::string(40000, 'x') + "\r\n y\r\nA: b\r\n.\r\n", "A: b\r\n\r\n"},
    {"a long line that is no header begins the body",
     "a " + std::string(40000, 'x') + "\r\nB: c\r\n.\r\n",
     "\r\na " + std::string(40000, 'x') + "\r\nB: c\r\n"},
    {"eight-bit bytes pass", "A: \xa4\xa2\r\n\r\n\xff\x80\r\n.\r\n",
     "A: \xa4\xa2\r\n\r\n\xff\x80\r\n"},
};

} // namespace

TEST(MessageReceiver, MakesWhatTheModuleNeeds)
{
    for (const auto &row : rows) {
        const Taken taken = take_whole(row.wire);
        ASSERT_TRUE(taken.finished) << row.label;
        EXPECT_EQ(taken.verdict.code, 250) << row.label;
        EXPECT_EQ(taken.text, row.text) << row.label;
    }
    EXPECT_EQ(take_whole("A: b\r\n.\r\nQUIT\r\n").rest, "QUIT\r\n");
}

TEST(MessageReceiver, DoesNotDependOnHowTheDataIsCutUp)
{
    std::mt19937 random(20261121);
    for (const auto &row : rows) {
        EXPECT_EQ(take(row.wire, [] { return 1; }).text, row.text) << row.label << ", byte by byte";
        for (int round = 0; round < 20; ++round)
            EXPECT_EQ(take(row.wire, [&] { return 1 + random() % 7; }).text, row.text)
                << row.label << ", round " << round;
    }
}

TEST(MessageReceiver, RandomBytesComeOutTheSameHoweverTheyAreCut)
{
    std::mt19937 random(7);
    static const std::string alphabet = "\r\r\n\n. :aR\t";
    for (int round = 0; round < 1000; ++round) {
        std::string wire;
        for (size_t i = 0; i < 40; ++i)
            wire += alphabet[random() % alphabet.size()];
        wire += "\r\n.\r\n";
        const Taken whole = take_whole(wire);
        const Taken cut = take(wire, [&] { return 1 + random() % 3; });
        EXPECT_EQ(whole.text, cut.text);
        EXPECT_EQ(whole.rest, cut.rest);
        /* The guarantees themselves. */
        ASSERT_TRUE(whole.text.ends_with("\r\n"));
        EXPECT_NE(("\r\n" + whole.text).find("\r\n\r\n"), std::string::npos);
        for (size_t i = 0; i < whole.text.size(); ++i) {
            if (whole.text[i] == '\n') {
                EXPECT_EQ(whole.text[i - 1], '\r');
            }
            if (whole.text[i] == '\r') {
                EXPECT_EQ(whole.text[i + 1], '\n');
            }
        }
    }
}

TEST(MessageReceiver, RefusesNulBytesWhereverTheyStand)
{
    for (const std::string &wire :
         {"A: \0b\r\n.\r\n"s, "\0"s + "\r\n.\r\n", "A: b\r\n\r\nc\0\r\n.\r\n"s}) {
        EXPECT_EQ(take_whole(wire).verdict.code, 554);
        EXPECT_EQ(take(wire, [] { return 1; }).verdict.status, "5.6.0");
    }
    EXPECT_EQ(take_whole("A: b\r\n.\r\n\0"s).verdict.code, 250)
        << "a NUL after the end is not data";
}

TEST(MessageReceiver, RefusesWhatIsTooLargeAndKeepsNothingOfIt)
{
    const std::string exact = "A: b\r\n\r\n" + std::string(90, 'x') + "\r\n";
    EXPECT_EQ(take_whole(exact + ".\r\n", 100).verdict.code, 250);
    const Taken taken = take_whole("A: b\r\n\r\n" + std::string(91, 'x') + "\r\n.\r\n", 100);
    EXPECT_EQ(taken.verdict.code, 552);
    EXPECT_EQ(taken.verdict.status, "5.3.4");
    EXPECT_EQ(taken.text, "");
}

TEST(MessageReceiver, NoticesTheEndOfALargeMailInBoundedMemory)
{
    const Scratch scratch;
    MessageReceiver receiver(std::move(*MessageFile::create(scratch.path("m"))), 1 << 30);
    receiver.feed("A: b\r\n\r\n");
    const std::string block(64 * 1024, 'x'); /* one line of a hundred megabytes */
    for (int i = 0; i < 1600; ++i)
        receiver.feed(block);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(usage.ru_maxrss, 90 * 1024) << "kilobytes";
#endif
    receiver.feed("\r\n.\r\n");
    EXPECT_TRUE(receiver.finished());
    EXPECT_EQ(receiver.verdict().code, 250);
    struct stat status;
    ASSERT_EQ(stat(receiver.file().path().c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 8 + 1600 * 64 * 1024 + 2);
}

TEST(MessageReceiver, StopsMailThatGoesRound)
{
    std::string wire;
    for (int i = 0; i < 101; ++i)
        wire += "Received: from a\r\n";
    EXPECT_EQ(take_whole(wire + "\r\n.\r\n").verdict.status, "5.4.6");
    EXPECT_EQ(take_whole(wire.substr(18) + "\r\nReceived: body\r\n.\r\n").verdict.code, 250);
}

TEST(MessageReceiver, TellsAFullDiskFromABadMail)
{
    auto file = MessageFile::create("/dev/full/x");
    EXPECT_FALSE(file) << "no directory";
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const rlimit small{4096, old.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const Taken taken = take_whole("A: b\r\n\r\n" + std::string(100000, 'x') + "\r\n.\r\n");
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(taken.verdict.code, 452);
    EXPECT_EQ(taken.verdict.status, "4.3.1");
}

TEST(MessageReceiver, RemovesItsFile)
{
    const Scratch scratch;
    {
        MessageReceiver receiver(std::move(*MessageFile::create(scratch.path("m"))), 100);
        receiver.feed("A: b\r\n");
        EXPECT_EQ(names_in(scratch.path()).size(), 1u);
    }
    EXPECT_TRUE(names_in(scratch.path()).empty());
}

TEST(HeaderFacts, AreThoseThatTheModuleWouldCollect)
{
    const HeaderFacts facts =
        take_whole("From: owner-\r\n\tmylist@x\r\nfrom:b\r\nFrom : c\r\n"
                   "Auto-Submitted: no\r\nauto-submitted:\r\n auto-replied; x\r\n"
                   "Precedence:\tBulk \r\nReceived: 1\r\n 2\r\nReceived: 2\r\n\r\n"
                   "From: body\r\n.\r\n")
            .facts;
    EXPECT_EQ(facts.from, " owner-mylist@xb");
    EXPECT_EQ(facts.auto_submitted, "auto-replied; x");
    EXPECT_EQ(facts.precedence, "Bulk");
    EXPECT_EQ(facts.received, 2u);
}
