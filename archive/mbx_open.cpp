/* Opening and closing a mailbox, and the handle between. */
#include <errno.h>
#include <string.h>

#include "archive/mbx.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/sink.h"
#include "module/unix_sv.h"

/* -- handle -- */

static void release_mailbox(Mailbox *box)
{
    KeepErrno keep;
    host_release(box->index);
    host_release(box->path);
    host_release(box);
}

static Mailbox *new_mailbox(const char *path, int mode)
{
    Mailbox *box = static_cast<Mailbox *>(host_allocate(sizeof(Mailbox)));
    if (box == nullptr) {
        trace_sys(&g_logh, 1, 600, "mbx_open(): ThrMemAlloc failed: %m");
        return nullptr;
    }
    memset(static_cast<void *>(box), 0, sizeof(*box));
    box->mode = static_cast<uint32_t>(mode);
    box->path = host_copy_text(path);
    if (box->path != nullptr) return box;
    trace_sys(&g_logh, 1, 601, "mbx_open(): ThrStrdup failed: %m");
    release_mailbox(box);
    return nullptr;
}

void end_open_transaction(Mailbox *box)
{
    abandon_index(box->open_transaction);
    box->open_transaction = nullptr;
}

void replace_view(Mailbox *box, IndexRecord *index)
{
    /* The parsed message is known by a sequence number, which may be another message's now. */
    list_mbx_freecache(box);
    host_release(box->index);
    box->index = index;
    box->mode &= ~static_cast<uint32_t>(MAILBOX_FORCE_CHECK | MAILBOX_RESYNC);
}

void set_sync_stamp(Mailbox *box, const struct timespec *changed)
{
    box->synchronised = *changed;
    box->sync_stamp = static_cast<int32_t>(changed->tv_sec);
}

/* -- open -- */

uint32_t count_recent(IndexRecord *index)
{
    uint32_t recent = 0;
    for (uint32_t i = 1; i < record_count(index); ++i)
        if (index[i].flags & MESSAGE_RECENT) ++recent;
    return recent;
}

/* 0, or -1 when the UIDs do not ascend. */
static int summarise(IndexRecord *index, MailboxSummary *summary_out)
{
    uint32_t last_uid = 0, recent = 0, first_unseen = 0;
    for (uint32_t i = 1; i < record_count(index); ++i) {
        const IndexRecord record = index[i];
        if (record.uid <= last_uid) return -1;
        last_uid = record.uid;
        if (record.flags & MESSAGE_RECENT) ++recent;
        if (first_unseen == 0 && !(record.flags & MESSAGE_SEEN)) first_unseen = i;
    }
    *summary_out = {message_count(index), recent, uid_validity(index), uid_next(index),
                    first_unseen};
    return 0;
}

IndexRecord *load_view(IndexTransaction *transaction, const char *path, MailboxSummary *summary_out,
                       KeptIndex *kept)
{
    if (transaction->begin(path, kept) < 0) {
        trace_sys(&g_logh, 1, 602, "mbx_open(): mbx_openidx failed %m");
        return nullptr;
    }
    HostPtr<IndexRecord> index(transaction->read());
    if (index.p == nullptr) {
        trace_sys(&g_logh, 1, 603, "mbx_open(): mlmbx_readidx failed %m");
        return nullptr;
    }
    if (summarise(index.p, summary_out) == 0) return index.take();
    trace_sys(&g_logh, 1, 604, "mbx_open: %s invalid uid", path);
    return nullptr;
}

static int load_mailbox(Mailbox *box, MailboxSummary *summary_out)
{
    IndexTransaction transaction;
    struct timespec changed;
    box->index = load_view(&transaction, box->path, summary_out);
    if (box->index == nullptr) return -1;
    /* Writing what is there already renews the index's time: other handles look again. */
    const bool writes_back = summary_out->recent > 0 && !(box->mode & MAILBOX_NO_WRITE_BACK);
    if (writes_back && transaction.write(box->index) < 0) {
        trace_sys(&g_logh, 1, 605, "mbx_open(): mbx_writeidx failed %m");
        return -1;
    }
    if (transaction.end(&changed) < 0) {
        trace_sys(&g_logh, 1, 606, "mbx_open(): mbx_closeidx failed %m");
        return -1;
    }
    set_sync_stamp(box, &changed);
    return 0;
}

void print_summary(const MailboxSummary *summary, uint32_t mode)
{
    if (mode & MAILBOX_QUIET) return;
    out_printf("* FLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)\r\n");
    out_printf("* %d EXISTS\r\n", static_cast<int>(summary->messages));
    out_printf("* %d RECENT\r\n", static_cast<int>(summary->recent));
    out_printf("* OK [UIDVALIDITY %d] UIDs valid\r\n", static_cast<int>(summary->uid_validity));
    out_printf("* OK [UIDNEXT %d] Predicted next UID\r\n", static_cast<int>(summary->uid_next));
    const int unseen = static_cast<int>(summary->first_unseen);
    if (unseen != 0) out_printf("* OK [UNSEEN %d] message %d is first unseen\r\n", unseen, unseen);
    if (mode & MAILBOX_READ_ONLY)
        out_printf("* OK [PERMANENTFLAGS ()] limited\r\n");
    else
        out_printf("* OK [PERMANENTFLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)] "
                   "limited\r\n");
    out_flush();
}

MailboxHandle *list_mbx_open(const char *path, int mode)
{
    Mailbox *box = new_mailbox(path, mode);
    if (box == nullptr) return nullptr;
    MailboxSummary summary;
    if (load_mailbox(box, &summary) < 0) {
        KeepErrno keep;
        release_mailbox(box);
        /* KEPT: the rebuild may well have repaired the index, yet this open has failed.
           Test: MailboxOpen.RebuildsADamagedIndexAndFailsAllTheSame */
        (void)list_mbx_rebuild(path);
        return nullptr;
    }
    print_summary(&summary, box->mode);
    return box;
}

void list_mbx_close(MailboxHandle *handle)
{
    if (handle == nullptr) return;
    Mailbox *box = mailbox_of(handle);
    list_mbx_freecache(box);
    if (!(box->mode & MAILBOX_NO_WRITE_BACK)) {
        box->mode |= MAILBOX_QUIET;
        mlmbx_checknewmail(box);
    }
    end_open_transaction(box);
    release_mailbox(box);
}
