/* A posting's way into the archive: one transaction does what the separate calls do. */
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

#include "archive/mbx_post.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

/* The separate calls. */
static PostResult post_in_steps(const Box &box, const PostedFile *file, int32_t keep)
{
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    if (handle == nullptr) return PostResult::not_opened;
    const int64_t records = handle->index[0].header_size;
    IndexHandle *batch =
        mbxappend(box.path(), NO_INDEX_HANDLE, file->path, 0, file->header_size, file->size, 0);
    if (batch == NO_INDEX_HANDLE) {
        list_mbx_close(handle);
        return PostResult::not_appended;
    }
    (void)mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0);
    handle->mode |= MAILBOX_FORCE_CHECK;
    if (records > 1 && records > keep) {
        for (int64_t i = 1; i <= records - keep && i < records; ++i)
            handle->index[i].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
        mlmbx_expunge(handle, 0);
    }
    list_mbx_close(handle);
    return PostResult::posted;
}

static const struct {
    const char *label;
    int messages;
    int32_t keep;
    uint32_t flagged; /* flags of message 2, if there is one */
    const char *damage;
} rows[] = {
    {"an empty archive", 0, 5, 0, nullptr},
    {"fewer than are kept", 3, 5, 0, nullptr},
    {"one below", 4, 5, 0, nullptr},
    {"as many as are kept", 5, 5, 0, nullptr},
    {"far too many", 9, 5, 0, nullptr},
    {"only the newest", 3, 1, 0, nullptr},
    {"none but the posting", 4, -7, 0, nullptr},
    {"an empty archive that keeps none", 0, -7, 0, nullptr},
    {"another one is flagged deleted", 5, 4, MESSAGE_DELETED | MESSAGE_SEEN, nullptr},
    {"a flagged one without surplus", 2, 9, MESSAGE_DELETED, nullptr},
    {"stale expunge marks", 2, 9, MESSAGE_EXPUNGE | MESSAGE_FLAGGED, nullptr},
    {"all seen", 1, 9, MESSAGE_SEEN, nullptr},
    {"a damaged index", 3, 9, 0, "damaged"},
};

static std::string posted_by(bool steps, int messages, int32_t keep, uint32_t flagged,
                             const char *damage)
{
    FaultOs fault;
    fault.now = 1800000000;
    Box box;
    box.append_samples(messages);
    if (messages >= 2 && flagged != 0) box.set_flags(2, flagged);
    if (damage != nullptr) write_file(box.name("#mix"), damage);
    const std::string source = box.source("A: b\r\n\r\nbody\r\n");
    const PostedFile file = {source.c_str(), 8, 14};
    OutCapture out;
    take_log();
    uint32_t uid = 0;
    const PostResult result =
        steps ? post_in_steps(box, &file, keep) : mbx_post(box.path(), &file, keep, &uid);
    if (!steps && result == PostResult::posted) {
        EXPECT_EQ(messages + 1u, uid);
    }
    std::string text = std::to_string(static_cast<int>(result)) + "\n" + out.take();
    for (std::string line : take_log_lines(true)) {
        for (size_t at; (at = line.find(box.path())) != std::string::npos;)
            line.erase(at, strlen(box.path()));
        text += line + "\n";
    }
    return text + tree_text(box.path());
}

TEST(Posting, PrintsLogsAndLeavesWhatTheSeparateCallsDo)
{
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(posted_by(true, row.messages, row.keep, row.flagged, row.damage),
                  posted_by(false, row.messages, row.keep, row.flagged, row.damage));
    }
}

TEST(Posting, CommitsOnce)
{
    Box box;
    box.append_samples(5);
    const std::string source = box.source("text");
    const PostedFile file = {source.c_str(), 0, 4};
    OutCapture out;
    FaultOs fault;
    uint32_t uid;
    EXPECT_EQ(PostResult::posted, mbx_post(box.path(), &file, 5, &uid));
    EXPECT_EQ(5, std::count(fault.calls.begin(), fault.calls.end(), "fsync"));
    EXPECT_EQ((std::vector<uint32_t>{2, 3, 4, 5, 6}), box.uids());
}

TEST(Posting, ThatFailsSaysWhy)
{
    Box box;
    box.append_samples(2);
    const PostedFile missing = {"/nonexistent/file", 0, 4};
    OutCapture out;
    take_log();
    uint32_t uid = 77;
    const std::string before = tree_text(box.path());
    EXPECT_EQ(PostResult::not_appended, mbx_post(box.path(), &missing, 1, &uid));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(77u, uid);
    EXPECT_EQ((Lines{"1/618 mbx_append: link(/nonexistent/file, " + box.message(3) +
                     "): No such file or directory"}),
              take_log_lines(true));
    EXPECT_EQ(open_lines(2, 2, Box::validity, 3, 1), out.take());
    EXPECT_EQ(before, tree_text(box.path()));
}

TEST(Posting, IsWholeOrNotThereWhateverCallFailsOrKills)
{
    WithoutSync no_sync;
    OutCapture out;
    for (const int error : {ENOSPC, -1})
        for (int nth = 0;; ++nth) {
            SCOPED_TRACE(nth);
            Box box;
            box.append_samples(3);
            const std::string source = box.source("text");
            const PostedFile file = {source.c_str(), 0, 4};
            bool disturbed, posted;
            {
                FaultOs fault;
                fault.fail_nth_change(nth, error);
                uint32_t uid;
                posted = mbx_post(box.path(), &file, 3, &uid) == PostResult::posted;
                disturbed = fault.disturbed();
            }
            MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET);
            ASSERT_NE(nullptr, handle);
            list_mbx_close(handle);
            const std::vector<uint32_t> uids = box.uids(), old = {1, 2, 3}, whole = {2, 3, 4};
            EXPECT_TRUE(uids == whole || (uids == old && !posted));
            for (const uint32_t uid : uids)
                EXPECT_EQ(uid == 4 ? "text" : sample_message(uid), read_file(box.message(uid)));
            if (!disturbed) break;
            ASSERT_LT(nth, 50);
        }
    take_log();
}
