#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/file.h"
#include "store/ntio.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/control_fault.h"

namespace
{
struct Side {
    int (*insert)(DeliveryJob *);
    const char *plain, *japanese; /* files */
    const char *recover, *write, *read;
};

const Side sides[] = {
    {insert_banner_t, "msg/bnrtop.txt", "msg/bnrtopj.txt",
     "1/258 mlname=mylist insert_banner_t recover error Is a directory [CTL/msg/bnrtop.txt]",
     "1/259 mlname=mylist insert_banner_t fputs error No space left on device "
     "[CTL/msg/bnrtop.txt]",
     "1/260 mlname=mylist insert_banner_t fgets error Is a directory [CTL/msg/bnrtop.txt]"},
    {insert_banner_b, "msg/bnrbtm.txt", "msg/bnrbtmj.txt",
     "1/261 mlname=mylist insert_banner_b recover error Is a directory [CTL/msg/bnrbtm.txt]",
     "1/262 mlname=mylist insert_banner_b fputs error No space left on device "
     "[CTL/msg/bnrbtm.txt]",
     "1/263 mlname=mylist insert_banner_b fgets error Is a directory  [CTL/msg/bnrbtm.txt]"},
};

/* What an insertion puts into a fresh journal. */
std::string inserted(TempList &list, const Side &side, int kind, int wanted = 0)
{
    const std::string journal = list.control("jnl/j");
    list.job()->journal = f_open(journal.c_str(), "w");
    list.job()->content_kind = kind;
    EXPECT_EQ(wanted, side.insert(list.job()));
    EXPECT_EQ(1, f_close(list.job()->journal));
    list.job()->journal = nullptr;
    return read_file(journal);
}

TEST(Banner, TheKindOfTheContentChoosesTheFile)
{
    for (const Side &side : sides) {
        TempList list;
        list.put(side.plain, "plain\r\n");
        list.put(side.japanese, "\xa4\xe8\xa4\xa6\xa4\xb3\xa4\xbd\r\n");
        EXPECT_EQ("plain\r\n\r\n", inserted(list, side, CONTENT_PLAIN));
        EXPECT_EQ("\x1b$B$h$&$3$=\x1b(B\r\n\r\n", inserted(list, side, CONTENT_JIS));
        for (const int kind : {0, -1, 3})
            EXPECT_EQ("", inserted(list, side, kind)) << kind;
    }
}

TEST(Banner, ThePlainFileIsConvertedToo)
{
    TempList list;
    list.put("msg/bnrtop.txt", "A\xa4\xa2"
                               "B\n");
    EXPECT_EQ("A\x1b$B$\"\x1b(BB\n\r\n", inserted(list, sides[0], CONTENT_PLAIN));
}

TEST(Banner, LineEndsStandAsInTheFileAndAnEmptyLineFollows)
{
    static const struct {
        const char *file, *journal;
    } rows[] = {
        {"one\ntwo\n", "one\ntwo\n\r\n"},
        {"one\r\ntwo\r\n", "one\r\ntwo\r\n\r\n"},
        {"one", "one\r\n"},
        {"\r\n", "\r\n\r\n"},
        {"", "\r\n"},
    };
    for (const Side &side : sides)
        for (const auto &row : rows) {
            TempList list;
            list.put(side.plain, row.file);
            EXPECT_EQ(row.journal, inserted(list, side, CONTENT_PLAIN)) << row.file;
        }
}

TEST(Banner, AMissingFileIsNoBanner)
{
    for (const Side &side : sides) {
        TempList list;
        (void)take_log();
        EXPECT_EQ("", inserted(list, side, CONTENT_PLAIN));
        EXPECT_EQ("", inserted(list, side, CONTENT_JIS));
        EXPECT_EQ((std::vector<std::string>{}), log_of(list));
    }
}

TEST(Banner, AnInterruptedReplacementOfTheFileIsFinishedFirst)
{
    TempList list;
    list.put("msg/bnrtop.txt", "old\r\n");
    list.put("msg/bnrtop.txt.new", "new\r\n");
    list.put("msg/bnrtop.txt.old", "old\r\n");
    EXPECT_EQ("new\r\n\r\n", inserted(list, sides[0], CONTENT_PLAIN));
    (void)take_log();
}

/* A line of more than 4,095 bytes comes in pieces; no character is cut in two. */
TEST(Banner, ALongJapaneseLineLosesNoCharacter)
{
    for (size_t before = 0; before < 4; ++before) {
        std::string line(before, 'a'), wanted(before, 'a');
        for (int i = 0; i < 1200; ++i)
            line += "\xa4\xa2";
        line += std::string(1690 - before, 'b');
        for (int i = 0; i < 300; ++i)
            line += "\xa4\xa4";
        TempList list;
        list.put("msg/bnrtop.txt", line + "\r\n");
        std::string text = inserted(list, sides[0], CONTENT_PLAIN);
        for (const char *escape : {"\x1b$B", "\x1b(B"})
            for (size_t at; (at = text.find(escape)) != std::string::npos;)
                text.erase(at, 3);
        for (int i = 0; i < 1200; ++i)
            wanted += "$\"";
        wanted += std::string(1690 - before, 'b');
        for (int i = 0; i < 300; ++i)
            wanted += "$$";
        EXPECT_EQ(wanted + "\r\n\r\n", text) << before;
    }
}

/* Each change between ASCII and kanji costs an escape: the text grows to three times its size. */
TEST(Banner, ALineThatOutgrowsItsBufferLosesNoCharacter)
{
    std::string line, wanted;
    for (int i = 0; i < 3000; ++i) {
        line += i % 7 == 0 ? "ab\xa4\xa2" : "c\xa4\xa4";
        wanted += i % 7 == 0 ? "ab\x1b$B$\"\x1b(B" : "c\x1b$B$$\x1b(B";
    }
    TempList list;
    list.put("msg/bnrtop.txt", line + "\r\n");
    EXPECT_EQ(wanted + "\r\n\r\n", inserted(list, sides[0], CONTENT_PLAIN));
}

TEST(Banner, HostileFilesDoNoHarm)
{
    static const std::string files[] = {
        std::string(20000, '\xa4'),  std::string(4095, '\xff'), std::string("\xa4"),
        std::string("a\0b\r\nc", 6), std::string(9000, '\x8e'),
    };
    for (const std::string &file : files) {
        TempList list;
        list.put("msg/bnrtop.txt", file);
        EXPECT_NE("", inserted(list, sides[0], CONTENT_PLAIN));
    }
    (void)take_log();
}

TEST(Banner, EachFailureHasItsText)
{
    for (const Side &side : sides) {
        {
            TempList list;
            mkdir(list.control(std::string(side.plain) + ".new").c_str(), 0700);
            (void)take_log();
            EXPECT_EQ("", inserted(list, side, CONTENT_PLAIN, -1));
            const auto log = log_of(list);
            EXPECT_TRUE(has_line(log, side.recover)) << joined(log);
        }
        {
            TempList list;
            mkdir(list.control(side.plain).c_str(), 0700);
            (void)take_log();
            EXPECT_EQ("\r\n", inserted(list, side, CONTENT_PLAIN, -1))
                << "the empty line is written all the same";
            EXPECT_EQ((std::vector<std::string>{side.read}), log_of(list));
        }
        {
            TempList list;
            ASSERT_EQ(0, mkfifo(list.control(side.plain).c_str(), 0600));
            (void)take_log();
            EXPECT_EQ("", inserted(list, side, CONTENT_PLAIN, -1));
            std::string text = side.read;
            text.replace(text.find("Is a directory"), strlen("Is a directory"), "Illegal seek");
            EXPECT_EQ((std::vector<std::string>{text}), log_of(list));
        }
        for (const int turn : {0, 1}) { /* the banner's line, and the empty one */
            TempList list;
            list.put(side.plain, "text\r\n");
            FakeHost host;
            tcbcreate(&host.request);
            OutCapture out;
            (void)take_log();
            {
                FaultOs faults;
                faults.before = fail_call("write", "", turn, ENOSPC);
                EXPECT_EQ(turn == 0 ? "" : "text\r\n", inserted(list, side, CONTENT_PLAIN, -1));
            }
            const auto log = log_of(list);
            EXPECT_TRUE(has_line(log, side.write)) << joined(log);
            EXPECT_EQ(75, thread_context()->result_code);
            tcbfree();
            (void)take_log();
        }
    }
}

/* -- base64 of a file -- */

TEST(BinaryToText, WritesLinesOfSeventySixCharacters)
{
    TempList list;
    std::string binary;
    for (int i = 0; i < 120; ++i)
        binary.push_back(static_cast<char>(i * 7));
    list.put("binary", binary);
    list.put("text", "something longer that was there before, and that must go");
    EXPECT_EQ(0, binary_to_text(list.control("binary").c_str(), list.control("text").c_str()));
    const std::string text = list.get("text");
    EXPECT_EQ(78u, text.find("\r\n") + 2);
    EXPECT_EQ(160u + 6, text.size());
    EXPECT_EQ(0u, text.find("AAcOFRwjKjE4P0ZN"));
}

TEST(BinaryToText, FailuresGiveMinusOne)
{
    TempList list;
    list.put("binary", "abc");
    const std::string binary = list.control("binary"), text = list.control("text");
    EXPECT_EQ(-1, binary_to_text((binary + "x").c_str(), text.c_str()));
    EXPECT_FALSE(exists(text));
    EXPECT_EQ(-1, binary_to_text(binary.c_str(), list.control().c_str()));
    (void)take_log();
    EXPECT_EQ(-1, binary_to_text(list.control().c_str(), text.c_str()));
    const auto log = log_of(list);
    EXPECT_TRUE(has_line(log, "1/264 base64 encode stream error Is a directory")) << joined(log);
    {
        FaultOs faults;
        faults.before = fail_call("fsync", "", 0, EIO);
        EXPECT_EQ(-1, binary_to_text(binary.c_str(), text.c_str()));
    }
    EXPECT_TRUE(logged(264, "base64 encode stream error Input/output error"));
    (void)take_log();
}
} // namespace
