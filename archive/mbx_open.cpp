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

struct OpenCounts {
    uint32_t recent;
    uint32_t first_unseen; /* 0 none */
};

uint32_t count_recent(IndexRecord *index)
{
    uint32_t recent = 0;
    for (uint32_t i = 1; i < record_count(index); ++i)
        if (index[i].flags & MESSAGE_RECENT) ++recent;
    return recent;
}

/* 0, or -1 when the UIDs do not ascend. */
static int examine_index(IndexRecord *index, OpenCounts *counts_out)
{
    uint32_t last_uid = 0;
    *counts_out = {count_recent(index), 0};
    for (uint32_t i = 1; i < record_count(index); ++i) {
        if (index[i].uid <= last_uid) return -1;
        last_uid = index[i].uid;
        if (counts_out->first_unseen == 0 && !(index[i].flags & MESSAGE_SEEN))
            counts_out->first_unseen = i;
    }
    return 0;
}

/* Writing what is there already renews the index's time, and so makes other handles look again. */
static int wake_other_handles(IndexTransaction *transaction, Mailbox *box, const OpenCounts *counts)
{
    if (counts->recent == 0 || (box->mode & MAILBOX_NO_WRITE_BACK)) return 0;
    return transaction->write(box->index);
}

/* Logs one of 602 to 606 and answers -1. */
static int open_failure(int msgno, const char *path)
{
    switch (msgno) {
    case 602:
        trace_sys(&g_logh, 1, 602, "mbx_open(): mbx_openidx failed %m");
        break;
    case 603:
        trace_sys(&g_logh, 1, 603, "mbx_open(): mlmbx_readidx failed %m");
        break;
    case 604:
        trace_sys(&g_logh, 1, 604, "mbx_open: %s invalid uid", path);
        break;
    case 605:
        trace_sys(&g_logh, 1, 605, "mbx_open(): mbx_writeidx failed %m");
        break;
    case 606:
        trace_sys(&g_logh, 1, 606, "mbx_open(): mbx_closeidx failed %m");
        break;
    }
    return -1;
}

static int load_index(Mailbox *box, OpenCounts *counts_out)
{
    IndexTransaction transaction;
    struct timespec changed;
    if (transaction.begin(box->path) < 0) return open_failure(602, box->path);
    box->index = transaction.read();
    if (box->index == nullptr) return open_failure(603, box->path);
    if (examine_index(box->index, counts_out) < 0) return open_failure(604, box->path);
    if (wake_other_handles(&transaction, box, counts_out) < 0) return open_failure(605, box->path);
    if (transaction.end(&changed) < 0) return open_failure(606, box->path);
    set_sync_stamp(box, &changed);
    return 0;
}

static void print_mailbox(const Mailbox *box, const OpenCounts *counts)
{
    IndexRecord *index = box->index;
    out_printf("* FLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)\r\n");
    out_printf("* %d EXISTS\r\n", static_cast<int>(message_count(index)));
    out_printf("* %d RECENT\r\n", static_cast<int>(counts->recent));
    out_printf("* OK [UIDVALIDITY %d] UIDs valid\r\n", static_cast<int>(uid_validity(index)));
    out_printf("* OK [UIDNEXT %d] Predicted next UID\r\n", static_cast<int>(uid_next(index)));
    const int unseen = static_cast<int>(counts->first_unseen);
    if (unseen != 0) out_printf("* OK [UNSEEN %d] message %d is first unseen\r\n", unseen, unseen);
    if (box->mode & MAILBOX_READ_ONLY)
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
    OpenCounts counts;
    if (load_index(box, &counts) < 0) {
        KeepErrno keep;
        release_mailbox(box);
        /* KEPT: the rebuild may well have repaired the index, yet this open has failed.
           Test: MailboxOpen.RebuildsADamagedIndexAndFailsAllTheSame */
        (void)list_mbx_rebuild(path);
        return nullptr;
    }
    if (!(box->mode & MAILBOX_QUIET)) print_mailbox(box, &counts);
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
