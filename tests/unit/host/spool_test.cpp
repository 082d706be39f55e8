/* The outgoing queue: submitting, finding again, marking. */
#include "host/mlistd/spool/spool.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "host/mlistd/spool/queue_id.h"
#include "tests/unit/host/queue_calls.h"
#include "tests/unit/host/queue_view.h"

namespace
{
using queue_test::Control;
using queue_test::Harm;
using Strings = std::vector<std::string>;
constexpr std::chrono::milliseconds NO_WAIT(0);

std::unique_ptr<Spool> open_spool(const Scratch &scratch, const SpoolSettings &settings = {})
{
    auto spool = Spool::open(scratch.path("spool"), settings);
    EXPECT_TRUE(spool) << (spool ? "" : spool.error().text);
    return spool ? std::move(*spool) : nullptr;
}

class SpoolTest : public testing::Test
{
  protected:
    std::string submit(Spool &spool, const Strings &recipients = {"a@example.jp", "b@example.jp"})
    {
        const auto id =
            spool.submit(message_, "owner-alpha@example.jp", recipients, "alpha@example.jp");
        EXPECT_TRUE(id) << (id ? "" : id.error().text);
        return id ? *id : "";
    }
    Strings queued() const { return names_in(scratch_.path("spool/out")); }

    Scratch scratch_;
    const std::string text_ = "From: x@example.jp\r\n\r\nhello\r\n";
    const std::string message_ = scratch_.write("message", text_);
};

TEST_F(SpoolTest, SubmissionIsWhollyOnDisk)
{
    const auto spool = open_spool(scratch_);
    const std::string id = submit(*spool);
    EXPECT_TRUE(is_queue_id(id)) << id;
    EXPECT_EQ(Strings{id}, queued());
    EXPECT_EQ(Strings{}, names_in(scratch_.path("spool/tmp")));
    const QueuedMail mail = read_queued(spool->path_of(id));
    EXPECT_EQ("owner-alpha@example.jp", mail.envelope.sender);
    EXPECT_EQ("alpha@example.jp", mail.envelope.list);
    EXPECT_EQ(2u, mail.envelope.recipient_count);
    EXPECT_EQ((Strings{"a@example.jp", "b@example.jp"}), mail.todo);
    EXPECT_EQ(text_, mail.message);
    EXPECT_EQ(0, mail.envelope.message_offset % 4096);
}

TEST_F(SpoolTest, MessageFileIsCopiedAndNeverTouched)
{
    struct stat before, after;
    ASSERT_EQ(0, link(message_.c_str(), scratch_.path("archived").c_str()));
    ASSERT_EQ(0, stat(message_.c_str(), &before));
    const auto spool = open_spool(scratch_);
    const std::string id = submit(*spool);
    ASSERT_EQ(0, unlink(message_.c_str()));
    ASSERT_EQ(0, stat(scratch_.path("archived").c_str(), &after));
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(1u, after.st_nlink);
    EXPECT_EQ(text_, read_file(scratch_.path("archived")));
    EXPECT_EQ(text_, read_queued(spool->path_of(id)).message);
}

TEST_F(SpoolTest, EverythingIsSyncedInOrder)
{
    const auto spool = open_spool(scratch_);
    const Control control;
    const std::string id = submit(*spool);
    const std::string path = scratch_.path("spool/");
    const std::string draft = path + "tmp/q." + id;
    const Strings order = {"create " + draft,
                           "write",
                           "copy_range",
                           "fsync " + draft,
                           "rename " + path + "out/" + id,
                           "fsync " + path + "out"};
    EXPECT_EQ(order, queue_test::journal);
}

TEST_F(SpoolTest, TheDirectoriesOfANewSpoolAreSynced)
{
    const Control control;
    const auto spool = open_spool(scratch_);
    const std::string path = scratch_.path("spool");
    Strings order = {"mkdir " + path, "fsync " + scratch_.path()};
    for (const char *part : {"/in", "/out", "/tmp"})
        order.insert(order.end(), {"mkdir " + path + part, "fsync " + path});
    EXPECT_EQ(order, queue_test::journal);
}

TEST_F(SpoolTest, NobodyToSendToIsNoSubmission)
{
    const auto spool = open_spool(scratch_);
    EXPECT_EQ("", submit(*spool, {}));
    EXPECT_EQ(Strings{}, queued());
}

TEST_F(SpoolTest, UnusableRecipientsAreLeftOutAndLogged)
{
    Strings lines;
    SpoolSettings settings;
    settings.log = [&](int level, const std::string &text) {
        lines.push_back(std::to_string(level) + " " + text);
    };
    const auto spool = open_spool(scratch_, settings);
    const Strings mixed = {"a@example.jp",        "",
                           "x y@example.jp",      "x@example.jp\r\nRCPT TO:<z@z>",
                           "<x@example.jp>",      std::string("n\0l@example.jp", 14),
                           std::string(321, 'l'), "dots..in.@docomo.example"};
    const std::string id = submit(*spool, mixed);
    EXPECT_EQ((Strings{"a@example.jp", "dots..in.@docomo.example"}),
              read_queued(spool->path_of(id)).todo);
    EXPECT_EQ(Strings{"3 mlname=alpha@example.jp 6 recipients left out: not usable as addresses"},
              lines);
}

TEST_F(SpoolTest, BadSubmissionsAreRefused)
{
    const auto spool = open_spool(scratch_);
    const Strings to = {"a@example.jp"};
    const struct {
        const char *label;
        std::string file, sender, list;
        int code;
    } rows[] = {
        {"no file", scratch_.path("none"), "s@x", "l@x", ENOENT},
        {"a directory", scratch_.path(), "s@x", "l@x", EINVAL},
        {"a line end in the sender", message_, "s@x\nT", "l@x", EINVAL},
        {"a line end in the list", message_, "s@x", "l\n@x", EINVAL},
    };
    for (const auto &row : rows) {
        const auto id = spool->submit(row.file, row.sender, to, row.list);
        ASSERT_FALSE(id) << row.label;
        EXPECT_EQ(row.code, id.error().code) << row.label;
    }
    EXPECT_EQ(Strings{}, queued());
    EXPECT_EQ(0u, spool->count().waiting + spool->count().active);
}

TEST_F(SpoolTest, EmptyAndLargeMessagesKeepTheirBytes)
{
    const auto spool = open_spool(scratch_);
    std::string large(5'000'001, 'x');
    for (size_t i = 0; i < large.size(); i += 61)
        large[i] = static_cast<char>(i);
    for (const std::string &text : {std::string(), large}) {
        const auto id = spool->submit(scratch_.write("m", text), "", Strings{"a@x"}, "");
        ASSERT_TRUE(id);
        EXPECT_EQ(text, read_queued(spool->path_of(*id)).message);
    }
}

TEST_F(SpoolTest, ASecondProcessIsKeptOut)
{
    const auto spool = open_spool(scratch_);
    const auto second = Spool::open(scratch_.path("spool"));
    ASSERT_FALSE(second);
    EXPECT_EQ(EWOULDBLOCK, second.error().code);
}

TEST_F(SpoolTest, OpeningFindsWhatIsThereAndRemovesWhatIsUnfinished)
{
    std::string id;
    {
        const auto spool = open_spool(scratch_);
        id = submit(*spool);
    }
    scratch_.write("spool/tmp/q.0123456789abcd", "half");
    scratch_.write("spool/tmp/incoming", "somebody else's");
    std::filesystem::create_directory(scratch_.path("spool/tmp/q.directory"));
    scratch_.write("spool/out/README", "no submission");
    const auto spool = open_spool(scratch_);
    EXPECT_EQ((Strings{"incoming", "q.directory"}), names_in(scratch_.path("spool/tmp")));
    EXPECT_EQ(1u, spool->count().waiting);
    EXPECT_EQ(id, spool->take_due(NO_WAIT));
    EXPECT_EQ(std::nullopt, spool->take_due(NO_WAIT));
}

TEST_F(SpoolTest, OldestIsTakenFirstAndOnlyOnce)
{
    const auto spool = open_spool(scratch_);
    const Control control;
    queue_test::clock_at = 1000;
    const std::string first = submit(*spool);
    queue_test::clock_at = 1001;
    const std::string second = submit(*spool);
    EXPECT_EQ(first, spool->take_due(NO_WAIT));
    EXPECT_EQ(second, spool->take_due(NO_WAIT));
    EXPECT_EQ(std::nullopt, spool->take_due(NO_WAIT));
    EXPECT_EQ(2u, spool->count().active);
    spool->finished(first);
    EXPECT_EQ(Strings{second}, queued());
}

TEST_F(SpoolTest, RetryTimeSurvivesARestart)
{
    const Control control;
    queue_test::clock_at = 100'000;
    std::string id;
    {
        const auto spool = open_spool(scratch_);
        id = submit(*spool);
        ASSERT_EQ(id, spool->take_due(NO_WAIT));
        spool->try_again(id, 100'060);
        EXPECT_EQ(std::nullopt, spool->take_due(NO_WAIT));
    }
    const auto spool = open_spool(scratch_);
    EXPECT_EQ(std::nullopt, spool->take_due(NO_WAIT));
    queue_test::clock_at = 100'060;
    EXPECT_EQ(id, spool->take_due(NO_WAIT));
}

TEST_F(SpoolTest, PausesGrowWithAgeWithinBounds)
{
    const auto spool = open_spool(scratch_);
    const Control control;
    queue_test::clock_at = 1'000'000;
    EXPECT_EQ(1'000'060, spool->next_try(1'000'000));
    EXPECT_EQ(1'000'060, spool->next_try(1'000'500)) << "created after now: the clock went back";
    EXPECT_EQ(1'000'600, spool->next_try(999'400));
    EXPECT_EQ(1'003'600, spool->next_try(900'000));
}

TEST_F(SpoolTest, AClockThatWasWrongParksNothing)
{
    {
        const auto spool = open_spool(scratch_);
        const std::string id = submit(*spool);
        ASSERT_EQ(id, spool->take_due(NO_WAIT));
        spool->try_again(id, time(nullptr) + 10LL * 365 * 86400);
    }
    const auto spool = open_spool(scratch_);
    EXPECT_NE(std::nullopt, spool->take_due(NO_WAIT));
}

TEST_F(SpoolTest, RetryNowMakesEverythingDue)
{
    const auto spool = open_spool(scratch_);
    const std::string id = submit(*spool);
    ASSERT_EQ(id, spool->take_due(NO_WAIT));
    spool->try_again(id, time(nullptr) + 1000);
    EXPECT_EQ(std::nullopt, spool->take_due(NO_WAIT));
    spool->retry_now();
    EXPECT_EQ(id, spool->take_due(NO_WAIT));
}

TEST_F(SpoolTest, RescanSeesWhatAToolDid)
{
    const auto spool = open_spool(scratch_);
    const std::string gone = submit(*spool), hurried = submit(*spool), active = submit(*spool);
    for (int i = 0; i < 3; i++)
        ASSERT_TRUE(spool->take_due(NO_WAIT));
    spool->try_again(gone, time(nullptr) + 1000);
    spool->try_again(hurried, time(nullptr) + 1000);
    ASSERT_EQ(0, unlink(spool->path_of(gone).c_str()));
    ASSERT_EQ(0, kernel_queue_calls.set_mtime(spool->path_of(hurried).c_str(), time(nullptr)));
    ASSERT_TRUE(spool->rescan());
    EXPECT_EQ(1u, spool->count().waiting);
    EXPECT_EQ(1u, spool->count().active);
    EXPECT_EQ(hurried, spool->take_due(NO_WAIT));
}

TEST_F(SpoolTest, WaitersWakeForNewMailAndForTheEnd)
{
    const auto spool = open_spool(scratch_);
    std::optional<std::string> taken;
    std::thread waiter([&] { taken = spool->take_due(std::chrono::seconds(60)); });
    const std::string id = submit(*spool);
    waiter.join();
    EXPECT_EQ(id, taken);
    std::atomic<bool> stop{false};
    std::thread second([&] { taken = spool->take_due(std::chrono::seconds(60), &stop); });
    stop = true;
    spool->wake_all();
    second.join();
    EXPECT_EQ(std::nullopt, taken);
}

TEST_F(SpoolTest, AFullDiskAtAnyCallLeavesNothingBehind)
{
    int failures = 0;
    for (int nth = 1;; nth++) {
        const Scratch scratch;
        const auto spool = open_spool(scratch);
        bool happened;
        {
            const Control control(Harm::fail, nth);
            const auto id = spool->submit(message_, "s@x", Strings{"a@x"}, "l@x");
            happened = control.happened();
            EXPECT_EQ(happened, !id) << nth;
            if (happened && !id) {
                EXPECT_EQ(ENOSPC, id.error().code) << nth;
            }
        }
        if (!happened) break;
        failures++;
        EXPECT_EQ(Strings{}, names_in(scratch.path("spool/out"))) << nth;
        EXPECT_EQ(Strings{}, names_in(scratch.path("spool/tmp"))) << nth;
        EXPECT_EQ(std::nullopt, spool->take_due(NO_WAIT)) << nth;
    }
    EXPECT_EQ(6, failures);
}

TEST_F(SpoolTest, CopiesByHandWhereTheKernelCannot)
{
    const auto spool = open_spool(scratch_);
    const std::string text(700'000, 'y');
    const std::string file = scratch_.write("m", text);
    const Control control(Harm::fail, 3, EXDEV); /* the third call is copy_range */
    const auto id = spool->submit(file, "s@x", Strings{"a@x"}, "l@x");
    ASSERT_TRUE(id) << id.error().text;
    EXPECT_EQ(text, read_queued(spool->path_of(*id)).message);
}

TEST_F(SpoolTest, ManyRecipientsAreOneFileAndReadInBatches)
{
    Strings many;
    for (int i = 0; i < 100'000; i++)
        many.push_back("user" + std::to_string(i) + "@example.jp");
    const auto spool = open_spool(scratch_);
    const std::string id = submit(*spool, many);
    EXPECT_EQ(1u, queued().size());
    auto open = open_envelope(spool->path_of(id));
    ASSERT_TRUE(open);
    RecipientReader reader(open->file.get(), open->envelope);
    Strings seen;
    for (;;) {
        const auto batch = reader.next(777);
        ASSERT_TRUE(batch);
        if (batch->empty()) break;
        EXPECT_LE(batch->size(), 777u);
        for (const auto &recipient : *batch)
            seen.push_back(recipient.address);
    }
    EXPECT_EQ(many, seen);
}

TEST_F(SpoolTest, MarksAreOneByteEachAndFoundAgain)
{
    const auto spool = open_spool(scratch_);
    const std::string id = submit(*spool, {"a@x", "bb@x", "ccc@x", "d@x"});
    const std::string before = read_file(spool->path_of(id));
    {
        auto open = open_envelope(spool->path_of(id));
        ASSERT_TRUE(open);
        RecipientReader reader(open->file.get(), open->envelope);
        const auto batch = reader.next(10);
        ASSERT_TRUE(batch);
        const std::vector<off_t> done = {(*batch)[0].mark_at, (*batch)[2].mark_at};
        const std::vector<off_t> failed = {(*batch)[3].mark_at};
        ASSERT_TRUE(set_marks(open->file.get(), done, Mark::done));
        ASSERT_TRUE(set_marks(open->file.get(), failed, Mark::failed));
    }
    const QueuedMail mail = read_queued(spool->path_of(id));
    EXPECT_EQ(Strings{"bb@x"}, mail.todo);
    EXPECT_EQ((Strings{"a@x", "ccc@x"}), mail.done);
    EXPECT_EQ(Strings{"d@x"}, mail.failed);
    const std::string after = read_file(spool->path_of(id));
    ASSERT_EQ(before.size(), after.size());
    int changed = 0;
    for (size_t i = 0; i < before.size(); i++)
        changed += before[i] != after[i];
    EXPECT_EQ(3, changed);
}

TEST_F(SpoolTest, DamagedFilesAreNoSubmissions)
{
    const auto spool = open_spool(scratch_);
    const std::string whole = read_file(spool->path_of(submit(*spool)));
    const auto replaced = [&](std::string_view what, std::string_view with) {
        std::string text = whole;
        return text.replace(text.find(what), what.size(), with);
    };
    const struct {
        const char *label;
        std::string text;
    } rows[] = {
        {"empty", ""},
        {"cut in the header", whole.substr(0, 30)},
        {"cut in the message", whole.substr(0, whole.size() - 1)},
        {"longer than it says", whole + "x"},
        {"another version", replaced("mlist-queue 1\n", "mlist-queue 12\n")},
        {"a size that is no number", replaced("message 0", "message -")},
        {"an offset beyond the file", replaced("message 000000004096", "message 000009994096")},
        {"an offset before the recipients",
         replaced("message 000000004096", "message 000000000001")},
        {"huge numbers", replaced("message 000000004096", "message 999999999999999999999999")},
        {"no list", replaced("list alpha", "lost alpha")},
        {"no blank line", replaced("\n\nT", "\nT")},
        {"zeros", std::string(5000, '\0')},
    };
    for (const auto &row : rows) {
        const auto open = open_envelope(scratch_.write("damaged", row.text));
        ASSERT_FALSE(open) << row.label;
        EXPECT_EQ(EBADMSG, open.error().code) << row.label;
    }
}

TEST_F(SpoolTest, ManyThreadsSubmitAtOnce)
{
    const auto spool = open_spool(scratch_);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < 25; i++)
                submit(*spool);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(200u, queued().size());
    EXPECT_EQ(200u, spool->count().waiting);
}
} // namespace
