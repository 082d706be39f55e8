/* Checks for new mail: NOOP time, which announces removals, and FETCH/STORE/SEARCH time, which
   must not renumber messages and only marks what vanished. */
#include <string.h>

#include "archive/mbx_sync.h"
#include "module/host_mem.h"
#include "module/os.h"

/* Whether the index is as the handle last saw it.  Where the stamp's second is the same, the rest
   of the time decides, if both times have one: a change in the same second is not missed. */
static bool is_unchanged(const Mailbox *box)
{
    char name[MBX_NAME_SIZE];
    struct stat status;
    if (index_name(name, box->path) < 0 || os->stat(name, &status) < 0) return false;
    if (static_cast<int32_t>(status.st_mtime) != box->sync_stamp) return false;
    const struct timespec &seen = box->synchronised;
    const bool stamp_is_ours = static_cast<int32_t>(seen.tv_sec) == box->sync_stamp;
    if (!stamp_is_ours || seen.tv_nsec == 0 || status.st_mtim.tv_nsec == 0) return true;
    return seen.tv_nsec == status.st_mtim.tv_nsec;
}

static bool is_quiet(const Mailbox *box)
{
    return box->mode & MAILBOX_QUIET;
}

/* Stages the fresh index where the check has to write it, and commits: for new mail that is
   announced (the renewed time makes other handles look), and for flag changes of this handle.
   A failure is silent; the pending changes stay pending for the next check. */
static bool write_and_end(IndexTransaction *transaction, Mailbox *box, IndexRecord *fresh,
                          const SyncResult *sync)
{
    const bool announces = !is_quiet(box) && sync->first_new < record_count(fresh);
    if ((announces || sync->taken) && !(box->mode & MAILBOX_READ_ONLY))
        (void)transaction->write(fresh); /* the end fails then */
    struct timespec changed = {-1, 0};
    const bool done = transaction->end(&changed) == 0;
    set_sync_stamp(box, &changed);
    return done;
}

/* -- NOOP time -- */

static void replace_with_same(IndexTransaction *transaction, Mailbox *box,
                              HostPtr<IndexRecord> *fresh, ReportText *report)
{
    const SyncRules rules = {
        .report = !is_quiet(box), .keep_view = false, .carry_expunge_mark = false};
    const SyncResult sync = reconcile(box->index, fresh->p, &rules, report);
    if (!is_quiet(box) && sync.first_new < record_count(fresh->p))
        report_messages(fresh->p, report);
    const bool done = write_and_end(transaction, box, fresh->p, &sync);
    if (!done) keep_pending_marks(box->index, fresh->p);
    replace_view(box, fresh->take());
    if (!done) box->mode |= MAILBOX_FORCE_CHECK;
}

static void replace_with_other(IndexTransaction *transaction, Mailbox *box,
                               HostPtr<IndexRecord> *fresh, ReportText *report)
{
    const SyncResult nothing = {false, false, record_count(fresh->p)};
    (void)write_and_end(transaction, box, fresh->p, &nothing);
    if (!is_quiet(box)) report_replacement(box->index, fresh->p, report);
    replace_view(box, fresh->take());
}

static void check_at_noop(Mailbox *box, ReportText *report)
{
    IndexTransaction transaction;
    if (transaction.begin(box->path) < 0) return;
    HostPtr<IndexRecord> fresh(transaction.read());
    if (fresh.p == nullptr) return;
    if (same_validity(box->index, fresh.p))
        replace_with_same(&transaction, box, &fresh, report);
    else
        replace_with_other(&transaction, box, &fresh, report);
}

void mlmbx_checknewmail(MailboxHandle *handle)
{
    if (handle == nullptr || handle->index == nullptr) return;
    Mailbox *box = mailbox_of(handle);
    end_open_transaction(box);
    if (!(box->mode & (MAILBOX_FORCE_CHECK | MAILBOX_RESYNC)) && is_unchanged(box)) return;
    ReportText report;
    check_at_noop(box, &report);
    report.print();
}

/* -- FETCH, STORE and SEARCH time -- */

/* The view with the new messages behind it, or null.  What an index in disorder brings along with
   a UID that is no higher than the last is left out: the view stays in order. */
static IndexRecord *extended_view(IndexRecord *view, IndexRecord *fresh, uint32_t first_new)
{
    const uint32_t old_count = record_count(view);
    const size_t room = static_cast<size_t>(old_count) + (record_count(fresh) - first_new) + 1;
    IndexRecord *grown = static_cast<IndexRecord *>(host_allocate(room * sizeof(IndexRecord)));
    if (grown == nullptr) return nullptr;
    memcpy(grown, view, old_count * sizeof(IndexRecord));
    uint32_t count = old_count;
    uint32_t last_uid = count > 1 ? view[count - 1].uid : 0;
    for (uint32_t j = first_new; j < record_count(fresh); ++j) {
        if (fresh[j].uid <= last_uid) continue;
        last_uid = fresh[j].uid;
        grown[count++] = fresh[j];
    }
    record_count(grown) = count;
    uid_next(grown) = last_uid + 1;
    return grown;
}

/* 1 with the view extended by what is new, 0 when nothing is, -1 without memory. */
static int extend_view(Mailbox *box, IndexRecord *fresh, const SyncResult *sync)
{
    if (sync->first_new >= record_count(fresh)) return 0;
    IndexRecord *grown = extended_view(box->index, fresh, sync->first_new);
    if (grown == nullptr) return -1;
    host_release(box->index); /* numbers stay: what refers to them stays too */
    box->index = grown;
    return 1;
}

/* The view keeps its numbers.  keep_view has adopted taken flags without their mark; when they
   could not be written the mark comes back from the copy. */
static void update_with_same(IndexTransaction *transaction, Mailbox *box, IndexRecord *fresh,
                             ReportText *report)
{
    HostPtr<IndexRecord> before(record_count(box->index) * sizeof(IndexRecord));
    if (before.p == nullptr) return;
    memcpy(before.p, box->index, record_count(box->index) * sizeof(IndexRecord));
    const SyncRules rules = {
        .report = !is_quiet(box), .keep_view = true, .carry_expunge_mark = false};
    const SyncResult sync = reconcile(box->index, fresh, &rules, report);
    if (sync.vanished) box->mode |= MAILBOX_RESYNC;
    const int extended = extend_view(box, fresh, &sync);
    if (extended == 1 && !is_quiet(box)) report_messages(box->index, report);
    const bool done = write_and_end(transaction, box, fresh, &sync) && extended >= 0;
    box->mode &= ~static_cast<uint32_t>(MAILBOX_FORCE_CHECK);
    if (done) return;
    keep_pending_marks(before.p, box->index);
    box->mode |= MAILBOX_FORCE_CHECK;
}

/* KEPT: another UIDVALIDITY leaves the transaction, and so the lock, open; the handle owns it
   until its next operation or its close.
   Test: CheckNewMail2.LeavesItsTransactionOpenWhenTheIndexWasReplaced */
static void leave_invalid(IndexTransaction *transaction, Mailbox *box)
{
    uid_validity(box->index) = 0;
    box->mode |= MAILBOX_RESYNC;
    box->open_transaction = transaction->take();
    (void)make_work_copy(box->open_transaction); /* a sign for onlookers; nothing depends on it */
}

static void check_at_fetch(Mailbox *box, ReportText *report)
{
    IndexTransaction transaction;
    if (transaction.begin(box->path) < 0) return;
    HostPtr<IndexRecord> fresh(transaction.read());
    if (fresh.p == nullptr) return;
    if (same_validity(box->index, fresh.p))
        update_with_same(&transaction, box, fresh.p, report);
    else
        leave_invalid(&transaction, box);
}

void mlmbx_checknewmail2(MailboxHandle *handle)
{
    if (handle == nullptr || handle->index == nullptr) return;
    Mailbox *box = mailbox_of(handle);
    end_open_transaction(box);
    if (!(box->mode & MAILBOX_FORCE_CHECK) && is_unchanged(box)) return;
    ReportText report;
    check_at_fetch(box, &report);
    report.print();
}
