#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "mlist/archive.h"
#include "module/tcb.h"
#include "store/file.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/control_fault.h"

namespace
{
constexpr uint32_t validity = 0x6AF8F948;

std::string le32(uint32_t value)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<char>(value >> (8 * i)));
    return bytes;
}

std::string record(uint32_t uid, uint32_t flags, uint32_t header_size, uint32_t size)
{
    return le32(uid) + le32(flags) + le32(header_size) + le32(size);
}

std::string header(uint32_t next, uint32_t count)
{
    return record(next, validity, count, 0);
}

/* A message of so many bytes, so many of them header. */
std::string message(size_t header_size, size_t size)
{
    std::string text = "Subject: " + std::string(header_size - 13, 's') + "\r\n\r\n";
    return text + std::string(size - header_size, 'b');
}

/* A list with an archive of a fixed UIDVALIDITY. */
class Append : public StoreTest
{
  protected:
    Append()
    {
        list.job()->settings.journal = 1000;
        EXPECT_EQ(1, mlmbx_create(list.box().c_str()));
        write_file(list.box("#mix"), header(1, 1));
    }

    std::string journal() { return list.control("jnl/j." + std::to_string(list.job()->thread_id)); }

    int append(const std::string &text)
    {
        OutCapture out;
        remove(journal().c_str());
        write_file(journal(), text);
        const int result = mlappend(list.job());
        printed = out.take();
        return result;
    }

    void append_numbered(int from, int to)
    {
        for (int i = from; i <= to; ++i)
            EXPECT_EQ(0, append("X: " + std::to_string(i) + "\r\n\r\nbody\r\n")) << i;
    }

    std::string index() const { return read_file(list.box("#mix")); }
    std::vector<std::string> messages() const { return list_directory(list.box("#msg")); }

    TempList list;
    std::string printed;
};

using Names = std::vector<std::string>;

TEST_F(Append, AJournalBecomesTheNextMessage)
{
    const std::string first = message(412, 1234), second = message(398, 2048);
    EXPECT_EQ(0, append(first));
    EXPECT_EQ(1u, list.job()->append_uid);
    EXPECT_EQ(nullptr, list.job()->mailbox);
    EXPECT_EQ(0u, list.job()->new_number) << "the posting's number is not the archive's to change";
    EXPECT_EQ(0, append(second));
    EXPECT_EQ(2u, list.job()->append_uid);
    EXPECT_EQ(header(3, 3) + record(1, 32, 412, 1234) + record(2, 32, 398, 2048), index());
    EXPECT_EQ(first, read_file(list.box("#msg/1")));
    EXPECT_EQ(second, read_file(list.box("#msg/2")));
    EXPECT_EQ((Names{"#mix", "#msg"}), list_directory(list.box()));
    EXPECT_TRUE(exists(journal())) << "the journal is the pipeline's to move";
    EXPECT_EQ(Names{}, take_log_lines());
}

TEST_F(Append, TheArchivedMessageIsTheJournalsFileItself)
{
    EXPECT_EQ(0, append(message(100, 200)));
    struct stat source, archived;
    ASSERT_EQ(0, stat(journal().c_str(), &source));
    ASSERT_EQ(0, stat(list.box("#msg/1").c_str(), &archived));
    EXPECT_EQ(source.st_ino, archived.st_ino);
}

TEST_F(Append, PrintsTheOpenLinesOnce)
{
    EXPECT_EQ(0, append(message(100, 200)));
    EXPECT_EQ("* FLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)\r\n"
              "* 0 EXISTS\r\n"
              "* 0 RECENT\r\n"
              "* OK [UIDVALIDITY 1794701640] UIDs valid\r\n"
              "* OK [UIDNEXT 1] Predicted next UID\r\n"
              "* OK [PERMANENTFLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)] "
              "limited\r\n",
              printed);
    list.job()->settings.journal = 1;
    EXPECT_EQ(0, append(message(100, 200)));
    EXPECT_EQ(std::string::npos, printed.find("EXPUNGE")) << "the expunge is silent";
    EXPECT_NE(std::string::npos, printed.find("* 1 EXISTS\r\n"));
}

TEST_F(Append, TheHeaderEndsWithTheFirstEmptyLine)
{
    static const struct {
        const char *label, *journal;
        uint32_t header_size;
    } rows[] = {
        {"two lines", "A: 1\r\nB: 2\r\n\r\nbody\r\n\r\nmore\r\n", 14},
        {"no body", "A: 1\r\n\r\n", 8},
        {"no header", "\r\nbody\r\n", 2},
        {"no empty line: all of it", "A: 1\r\nbody\r\n", 12},
        {"no line end at all", "A: 1", 4},
        {"an empty journal", "", 0},
        {"a line of one blank is not empty", "A: 1\r\n \r\n\r\n", 11},
        {"LF counts as CR LF", "A: 1\n\nbody\n", 8},
    };
    uint32_t uid = 0;
    std::string records;
    for (const auto &row : rows) {
        EXPECT_EQ(0, append(row.journal)) << row.label;
        ++uid;
        records += record(uid, 32, row.header_size, static_cast<uint32_t>(strlen(row.journal)));
        EXPECT_EQ(header(uid + 1, uid + 1) + records, index()) << row.label;
        EXPECT_EQ(row.journal, read_file(list.box("#msg/" + std::to_string(uid)))) << row.label;
    }
}

TEST_F(Append, ALongHeaderLineIsMeasuredWhole)
{
    const std::string text = "A: " + std::string(20000, 'a') + "\r\nB: 1\r\n\r\nbody\r\n";
    EXPECT_EQ(0, append(text));
    EXPECT_EQ(header(2, 2) + record(1, 32, static_cast<uint32_t>(text.size() - 6),
                                    static_cast<uint32_t>(text.size())),
              index());
}

TEST_F(Append, TheArchiveKeepsAsManyMessagesAsTheListWants)
{
    static const struct {
        const char *label;
        int before, keep;
        Names left;
    } rows[] = {
        {"three of three", 3, 3, {"2", "3", "4"}},
        {"two of three", 2, 3, {"1", "2", "3"}},
        {"one", 3, 1, {"4"}},
        {"one, empty archive", 0, 1, {"1"}},
        {"more than there are", 3, 100, {"1", "2", "3", "4"}},
        {"a count that was lowered", 8, 3, {"7", "8", "9"}},
        {"a negative count", 3, -1, {"4"}},
        {"the most negative count", 3, INT32_MIN, {"4"}},
        {"a negative count, empty archive", 0, -5, {"1"}},
    };
    for (const auto &row : rows) {
        mlmbx_delete(list.box().c_str());
        ASSERT_EQ(1, mlmbx_create(list.box().c_str()));
        write_file(list.box("#mix"), header(1, 1));
        list.job()->settings.journal = 1000;
        append_numbered(1, row.before);
        list.job()->settings.journal = row.keep;
        append_numbered(row.before + 1, row.before + 1);
        EXPECT_EQ(row.left, messages()) << row.label;
        EXPECT_EQ(16 * (row.left.size() + 1), index().size()) << row.label;
        EXPECT_EQ(header(static_cast<uint32_t>(row.before) + 2,
                         static_cast<uint32_t>(row.left.size()) + 1),
                  index().substr(0, 16))
            << row.label;
        EXPECT_EQ((Names{"#mix", "#msg"}), list_directory(list.box())) << row.label;
    }
}

TEST_F(Append, TheExpungedIndexIsRightToTheByte)
{
    list.job()->settings.journal = 1;
    EXPECT_EQ(0, append(message(412, 1234)));
    EXPECT_EQ(0, append(message(398, 2048)));
    EXPECT_EQ(header(3, 2) + record(2, 32, 398, 2048), index());
    EXPECT_EQ(Names{"2"}, messages());
}

TEST_F(Append, AKeepCountOfZeroEmptiesTheArchiveAndStillCounts)
{
    EXPECT_EQ(0, append(message(412, 1234)));
    EXPECT_EQ(0, append(message(398, 2048)));
    list.job()->settings.journal = 0;
    EXPECT_EQ(0, append(message(100, 200)));
    EXPECT_EQ(header(4, 1), index());
    EXPECT_EQ(Names{}, messages());
    EXPECT_EQ("", printed);
    EXPECT_EQ((Names{"#mix", "#msg"}), list_directory(list.box()));
    EXPECT_EQ(0, append(message(100, 200)));
    EXPECT_EQ(header(5, 1), index());
    list.job()->settings.journal = 2;
    EXPECT_EQ(0, append(message(100, 200)));
    EXPECT_EQ(header(6, 2) + record(5, 32, 100, 200), index());
}

TEST_F(Append, FlagsOfKeptMessagesStay)
{
    append_numbered(1, 3);
    std::string records = index();
    records[16 * 2 + 4] = MESSAGE_SEEN | MESSAGE_FLAGGED;
    records[16 * 2 + 5] = 0;
    write_file(list.box("#mix"), records);
    list.job()->settings.journal = 3;
    append_numbered(4, 4);
    EXPECT_EQ((Names{"2", "3", "4"}), messages());
    EXPECT_EQ(MESSAGE_SEEN | MESSAGE_FLAGGED, index()[16 * 1 + 4]);
}

/* -- failures -- */

bool index_is_unlocked(const TempList &list)
{
    const int fd = open(list.box("#mix").c_str(), O_RDWR);
    const bool free = fd < 0 || flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return free;
}

TEST_F(Append, AMissingJournalIsAFailure)
{
    EXPECT_EQ(-1, mlappend(list.job()));
    EXPECT_EQ((Names{"1/293 mlname=mylist mlappend f_open error No such file or directory [fn=" +
                     journal() + "]\n"}),
              take_log_lines());
    EXPECT_EQ(header(1, 1), index());
}

/* Its size goes into the index, and readers go by that. */
TEST_F(Append, AJournalOfUnknownSizeIsAFailure)
{
    write_file(journal(), "a: b\r\n\r\nbody\r\n");
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &path) {
        return call == "stat" && path.find("/jnl/") != std::string::npos ? EIO : 0;
    };
    EXPECT_EQ(-1, mlappend(list.job()));
    EXPECT_EQ(header(1, 1), index());
    EXPECT_TRUE(logged(
        293, "mlname=mylist mlappend f_open error Input/output error [fn=" + journal() + "]\n"));
}

TEST_F(Append, AJournalThatCannotBeReadIsAFailure)
{
    mkdir(journal().c_str(), 0700);
    EXPECT_EQ(-1, mlappend(list.job()));
    EXPECT_TRUE(
        logged(294, "mlname=mylist mlappend fgets error Is a directory [" + journal() + "]"));
    take_log();
}

TEST_F(Append, AnArchiveThatCannotBeOpenedIsAFailure)
{
    mlmbx_delete(list.box().c_str());
    EXPECT_EQ(-1, append(message(100, 200)));
    const auto log = take_log_lines();
    const std::string wanted =
        "5/295 mlname=mylist mlappend mbxopen failure No such file or directory [fn=" + list.box() +
        "]";
    EXPECT_TRUE(has_line(log, wanted)) << joined(log);
    EXPECT_EQ(nullptr, list.job()->mailbox);
    EXPECT_EQ(0, result_code()) << "not a temporary failure by itself";
    list.job()->settings.journal = 0;
    EXPECT_EQ(-1, append(message(100, 200)));
    take_log();
}

TEST_F(Append, AFailedAppendIsReportedAndTheArchiveClosed)
{
    FaultOs faults;
    faults.before = fail_call("link", "", 0, EIO);
    EXPECT_EQ(-1, append(message(100, 200)));
    const auto log = take_log_lines();
    EXPECT_TRUE(has_line(
        log, "1/296 mlname=mylist mbxappend error Input/output error [fn=" + list.box() + "]"))
        << joined(log);
    EXPECT_EQ(nullptr, list.job()->mailbox);
    EXPECT_EQ(header(1, 1), index());
    EXPECT_TRUE(index_is_unlocked(list));
}

/* The driver's finishing call has one answer for everything; a posting that is not in the index
   must not go out as archived. */
TEST_F(Append, AnAppendThatIsNotCommittedIsAFailure)
{
    for (const int keep : {1000, 1, 0}) {
        FaultOs faults;
        list.job()->settings.journal = keep;
        faults.before = [](const std::string &call, const std::string &) {
            return call == "write" || call == "pwrite" ? ENOSPC : 0;
        };
        EXPECT_EQ(-1, append(message(100, 200))) << keep;
        EXPECT_EQ(ENOSPC, errno) << keep;
        EXPECT_EQ(header(1, 1), index()) << keep;
        EXPECT_TRUE(index_is_unlocked(list)) << keep;
    }
    EXPECT_EQ(0, append(message(100, 200)));
    take_log();
}

TEST_F(Append, WithoutMemoryNothingIsLostAndNothingStaysLocked)
{
    for (const int keep : {1000, 1, 0}) {
        bool reached = true;
        long nth = 0;
        for (; reached; ++nth) {
            mlmbx_delete(list.box().c_str());
            ASSERT_EQ(1, mlmbx_create(list.box().c_str()));
            list.job()->settings.journal = 1000;
            append_numbered(1, 2);
            const std::string before = index().substr(0, 4);
            list.job()->settings.journal = keep;
            host_.fail_allocation = nth;
            const int answer = append(message(100, 200));
            reached = host_.fail_allocation < 0;
            host_.fail_allocation = -1;
            EXPECT_TRUE(answer < 0 || index().substr(0, 4) == le32(4)) << keep << " " << nth;
            EXPECT_TRUE(answer == 0 || index().substr(0, 4) == before) << keep << " " << nth;
            EXPECT_EQ(nullptr, list.job()->mailbox);
            EXPECT_TRUE(index_is_unlocked(list)) << keep << " " << nth;
        }
        EXPECT_GT(nth, 3) << keep;
    }
    take_log();
}

/* UIDNEXT and the UIDs of an index. */
std::vector<uint32_t> numbers(const std::string &index)
{
    std::vector<uint32_t> uids;
    for (size_t at = 0; at < index.size(); at += 16)
        uids.push_back(static_cast<unsigned char>(index[at]));
    return uids;
}

using Numbers = std::vector<uint32_t>;

/* Old or new, whole, whatever fails or wherever the process dies: the index is one of the stated
   ones, each of its messages is there, and nothing stays locked.  (Flags and UIDVALIDITY may have
   been lost to a rebuild, or a mark of a message to go may have stayed.) */
void disturb_append(int keep, const Numbers &before, const std::vector<Numbers> &after)
{
    WithoutSync quick;
    const std::string text = message(100, 200);
    int disturbed_runs = 0;
    for (const int error : {ENOSPC, EIO, -1}) {
        std::unique_ptr<TempList> list;
        const auto prepare = [&] {
            list = std::make_unique<TempList>();
            ASSERT_EQ(1, mlmbx_create(list->box().c_str()));
            std::string index = header(4, 4);
            for (uint32_t uid = 1; uid <= 3; ++uid) {
                write_file(list->box("#msg/" + std::to_string(uid)), text);
                index += record(uid, 32, 100, 200);
            }
            write_file(list->box("#mix"), index);
            write_file(list->control("jnl/j." + std::to_string(list->job()->thread_id)), text);
            list->job()->settings.journal = keep;
        };
        const auto check = [&](int nth, int answer) {
            EXPECT_EQ(nullptr, list->job()->mailbox);
            MailboxHandle *box = list_mbx_open(list->box().c_str(), MAILBOX_NO_WRITE_BACK);
            ASSERT_NE(nullptr, box) << "change " << nth;
            list_mbx_close(box);
            const Numbers found = numbers(read_file(list->box("#mix")));
            const bool is_new = std::find(after.begin(), after.end(), found) != after.end();
            EXPECT_TRUE(is_new || (answer < 0 && found == before))
                << "change " << nth << " error " << error;
            for (size_t i = 1; i < found.size(); ++i)
                EXPECT_EQ(text, read_file(list->box("#msg/" + std::to_string(found[i]))))
                    << "message " << found[i] << " change " << nth << " error " << error;
            EXPECT_TRUE(index_is_unlocked(*list));
        };
        OutCapture out;
        disturbed_runs += disturb_every_change(
            error, prepare, [&] { return mlappend(list->job()); }, check);
    }
    EXPECT_GT(disturbed_runs, 10);
    take_log();
}

TEST(AppendFaults, AppendingSurvivesEveryFailureAndDeath)
{
    disturb_append(1000, {4, 1, 2, 3}, {{5, 1, 2, 3, 4}});
}

TEST(AppendFaults, TrimmingSurvivesEveryFailureAndDeath)
{
    disturb_append(3, {4, 1, 2, 3}, {{5, 1, 2, 3, 4}, {5, 2, 3, 4}});
}

TEST(AppendFaults, EmptyingSurvivesEveryFailureAndDeath)
{
    disturb_append(0, {4, 1, 2, 3}, {{5}});
}

TEST_F(Append, TakesFewSyncsOfTheIndex)
{
    list.job()->settings.journal = 3;
    append_numbered(1, 3);
    FaultOs faults;
    append_numbered(4, 4);
    long syncs = 0;
    for (const std::string &call : faults.calls)
        if (call.rfind("fsync", 0) == 0) ++syncs;
    /* One of the journal as read; for the append and for the expunge each the index, its new and
       its old copy and the names of these; the names of the messages. */
    EXPECT_LE(syncs, 1 + 2 * 4 + 1);
}
} // namespace
