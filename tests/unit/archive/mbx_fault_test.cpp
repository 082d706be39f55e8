/* Every changing call of every operation fails once, or is the last one of a killed process; then
   the next operation finds the mailbox as it was before or as it was to become, whole. */
#include <errno.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

struct Operation {
    const char *label;
    std::function<void(Box &)> prepare; /* undisturbed */
    std::function<void(Box &)> run;     /* disturbed; does not assert */
    std::function<void(Box &)> partly;  /* what may be all of it that happens: its commits so far */
};

static void append_one(Box &box)
{
    const std::string source = box.source("a new message\r\n");
    IndexHandle *batch = mbxappend(box.path(), NO_INDEX_HANDLE, source.c_str(), 0, 0, 15, 0);
    if (batch != NO_INDEX_HANDLE) (void)mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0);
}

static void with_handle(Box &box, int mode, const std::function<void(MailboxHandle *)> &use)
{
    MailboxHandle *handle = list_mbx_open(box.path(), mode);
    if (handle == nullptr) return;
    use(handle);
    list_mbx_close(handle);
}

static void expunge_two(Box &box)
{
    with_handle(box, MAILBOX_QUIET, [](MailboxHandle *handle) {
        for (const int sequence : {1, 3})
            if (static_cast<uint32_t>(sequence) < handle->index[0].header_size)
                handle->index[sequence].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
        mlmbx_expunge(handle, 0);
    });
}

/* The expunge fails, and the close writes the flags that it was to act on. */
static void flag_two_deleted(Box &box)
{
    with_handle(box, MAILBOX_QUIET, [](MailboxHandle *handle) {
        for (const int sequence : {1, 3})
            handle->index[sequence].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
        handle->mode |= MAILBOX_FORCE_CHECK;
    });
}

static void flag_one(Box &box)
{
    with_handle(box, MAILBOX_QUIET, [](MailboxHandle *handle) {
        if (handle->index[0].header_size > 2)
            handle->index[2].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
        handle->mode |= MAILBOX_FORCE_CHECK;
        mlmbx_checknewmail2(handle);
        handle->mode |= MAILBOX_FORCE_CHECK;
        mlmbx_checknewmail(handle);
    });
}

static void literal_change(Box &box)
{
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    if (index == NO_INDEX_HANDLE) return;
    IndexRecord *records = mlmbx_readidx(index);
    if (records != nullptr) {
        records[1].flags = MESSAGE_DRAFT;
        (void)mlmbx_writeidx(index, records);
        mlist_release(records);
    }
    (void)mlmbx_closeidx(index, INDEX_PLAIN);
}

static void three_messages(Box &box)
{
    box.append_samples(3);
}

static void half_committed(Box &box)
{
    box.append_samples(3);
    const Records records = box.index();
    write_file(box.name("#mix.old"), bytes_of(records));
    Records changed = records;
    changed[1].flags = MESSAGE_FLAGGED;
    write_file(box.name("#mix.new"), bytes_of(changed));
}

static void only_read(Box &box)
{
    with_handle(box, MAILBOX_NO_WRITE_BACK | MAILBOX_QUIET, [](MailboxHandle *) {});
}

static void open_and_close(Box &box)
{
    with_handle(box, 0, [](MailboxHandle *) {});
}

static const Operation operations[] = {
    {"append", three_messages, append_one, only_read},
    {"expunge", three_messages, expunge_two, flag_two_deleted},
    {"flag and check", three_messages, flag_one, only_read},
    {"open and close", three_messages, open_and_close, only_read},
    {"literal change", three_messages, literal_change, only_read},
    {"append after an interrupted commit", half_committed, append_one, only_read},
    {"read after an interrupted commit", half_committed, only_read, only_read},
};

/* What users see of the mailbox, read by the next operation: UIDs, flags and message texts.  A
   rebuilt index shows through its UIDVALIDITY. */
static std::string seen_by_next(Box &box)
{
    MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
    if (handle == nullptr) return "unreadable";
    std::string text = "next " + std::to_string(handle->index[0].uid) + " validity " +
                       std::to_string(handle->index[0].flags) + "\n";
    for (uint32_t i = 1; i < handle->index[0].header_size; ++i) {
        const IndexRecord &record = handle->index[i];
        text += std::to_string(record.uid) + " " + std::to_string(record.flags) + " " +
                std::to_string(record.size) + " " + read_file(box.message(record.uid)) + "\n";
    }
    list_mbx_close(handle);
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(box.path()));
    return text;
}

/* The states that a run passes through, as the next operation sees them. */
static std::vector<std::string> proper_states(const Operation &operation)
{
    std::vector<std::string> states;
    OutCapture out;
    for (const auto &run :
         {std::function<void(Box &)>(only_read), operation.partly, operation.run}) {
        Box box;
        operation.prepare(box);
        run(box);
        states.push_back(seen_by_next(box));
    }
    return states;
}

static void disturb(const Operation &operation, int error)
{
    const std::vector<std::string> states = proper_states(operation);
    OutCapture out;
    for (int nth = 0;; ++nth) {
        SCOPED_TRACE(std::string(operation.label) + ", call " + std::to_string(nth) +
                     (error < 0 ? " kills" : " fails"));
        Box box;
        operation.prepare(box);
        bool disturbed;
        {
            FaultOs fault;
            fault.fail_nth_change(nth, error);
            operation.run(box);
            disturbed = fault.disturbed();
        }
        const std::string seen = seen_by_next(box);
        /* A failing open makes the index anew, which loses flags, and that is visible. */
        const bool rebuilt = seen.find(std::to_string(Box::validity)) == std::string::npos;
        bool proper = rebuilt && error > 0 && seen != "unreadable";
        for (const std::string &state : states)
            proper = proper || seen == state;
        EXPECT_TRUE(proper) << seen << "instead of\n" << states[0] << "or\n" << states[2];
        for (const char *body : {"Body of 1.", "Body of 2.", "Body of 3."})
            EXPECT_TRUE(!rebuilt || seen.find(body) != std::string::npos) << seen;
        append_one(box); /* and life goes on */
        EXPECT_NE(seen, seen_by_next(box));
        if (!disturbed) break;
        ASSERT_LT(nth, 200);
    }
    take_log();
}

TEST(IndexUnderFaults, IsOldOrNewWhenAnyCallFails)
{
    WithoutSync no_sync;
    for (const Operation &operation : operations)
        for (const int error : {ENOSPC, EIO})
            disturb(operation, error);
}

TEST(IndexUnderFaults, IsOldOrNewWhenTheProcessDiesAtAnyCall)
{
    WithoutSync no_sync;
    for (const Operation &operation : operations)
        disturb(operation, -1);
}

/* -- operations that make something out of nothing -- */

TEST(CreateUnderFaults, CanBeRepeatedAfterAnyCallKills)
{
    for (int nth = 0;; ++nth) {
        SCOPED_TRACE(nth);
        Box box(false);
        bool disturbed;
        {
            FaultOs fault;
            fault.fail_nth_change(nth, -1);
            (void)mlmbx_create(box.path());
            disturbed = fault.disturbed();
        }
        (void)mlmbx_create(box.path());
        MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(1u, handle->index[0].uid);
        list_mbx_close(handle);
        append_one(box);
        EXPECT_EQ(2u, box.index().size());
        if (!disturbed) break;
        ASSERT_LT(nth, 50);
    }
    take_log();
}

TEST(RebuildUnderFaults, EndsWellAtTheNextOpensAfterAnyCallKills)
{
    for (int nth = 0;; ++nth) {
        SCOPED_TRACE(nth);
        Box box;
        box.append_samples(3);
        write_file(box.name("#mix"), "damaged");
        bool disturbed;
        {
            FaultOs fault;
            fault.fail_nth_change(nth, -1);
            (void)list_mbx_open(box.path(), MAILBOX_QUIET);
            disturbed = fault.disturbed();
        }
        MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET);
        if (handle == nullptr) handle = list_mbx_open(box.path(), MAILBOX_QUIET);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(4u, handle->index[0].header_size);
        list_mbx_close(handle);
        if (!disturbed) break;
        ASSERT_LT(nth, 50);
    }
    take_log();
}
