/* Removal of messages: those flagged \Deleted, or those the host marked. */
#include <errno.h>

#include "archive/mbx_sync.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

struct ExpungeRules {
    uint32_t mark;           /* flag of a record that goes */
    bool carry_expunge_mark; /* the mark is in the handle's view only */
};

static const ExpungeRules deleted_rules = {MESSAGE_DELETED, false};
static const ExpungeRules marked_rules = {MESSAGE_EXPUNGE, true};

uint32_t count_marked(IndexRecord *index, uint32_t mark)
{
    uint32_t marked = 0;
    for (uint32_t i = 1; i < record_count(index); ++i)
        if (index[i].flags & mark) ++marked;
    return marked;
}

/* The number of a removed message is the place it had when those before it were gone already. */
void remove_marked(IndexRecord *index, uint32_t mark, Removal *removals_out)
{
    uint32_t kept = 1;
    for (uint32_t i = 1; i < record_count(index); ++i) {
        if (index[i].flags & mark)
            *removals_out++ = {kept, index[i].uid};
        else
            index[kept++] = index[i];
    }
    record_count(index) = kept;
}

/* A file that stays is in nobody's way: UIDs are given out once. */
void unlink_messages(const char *path, const Removal *removals, uint32_t count)
{
    char name[MBX_NAME_SIZE];
    for (uint32_t i = 0; i < count; ++i)
        if (message_name(name, path, removals[i].uid) == 0) (void)os->unlink(name);
}

struct Expunge {
    Mailbox *box;
    const ExpungeRules *rules;
    bool report;
    IndexTransaction transaction;
    ReportText text;
};

/* Writes the fresh index without the marked messages, and commits.  On failure nothing has
   happened for the handle: it keeps its view and its marks and announces nothing. */
static int commit_removals(Expunge *run, IndexRecord *fresh, bool taken, Removal *removals,
                           uint32_t removed)
{
    struct timespec changed;
    if (removed > 0) remove_marked(fresh, run->rules->mark, removals);
    if (removed > 0 || taken) (void)run->transaction.write(fresh); /* the end fails then */
    if (run->transaction.end(&changed) < 0) {
        run->text.forget();
        run->box->mode |= MAILBOX_FORCE_CHECK;
        return -1;
    }
    set_sync_stamp(run->box, &changed);
    for (uint32_t i = 0; run->report && i < removed; ++i)
        run->text.add("* %d EXPUNGE\r\n", static_cast<int>(removals[i].sequence));
    return 0;
}

static int expunge_same(Expunge *run, HostPtr<IndexRecord> *fresh)
{
    const SyncRules rules = {.report = run->report,
                             .keep_view = false,
                             .carry_expunge_mark = run->rules->carry_expunge_mark};
    const SyncResult sync = reconcile(run->box->index, fresh->p, &rules, &run->text);
    if (run->report && sync.first_new < record_count(fresh->p))
        report_messages(fresh->p, &run->text);
    const uint32_t removed = count_marked(fresh->p, run->rules->mark);
    HostPtr<Removal> removals((removed + size_t{1}) * sizeof(Removal));
    if (removals.p == nullptr) return -1;
    if (commit_removals(run, fresh->p, sync.taken, removals.p, removed) < 0) return -1;
    replace_view(run->box, fresh->take());
    run->text.print();
    unlink_messages(run->box->path, removals.p, removed);
    return 0;
}

static int expunge_other(Expunge *run, HostPtr<IndexRecord> *fresh)
{
    struct timespec changed;
    if (run->transaction.end(&changed) < 0) return -1;
    set_sync_stamp(run->box, &changed);
    if (run->report) report_replacement(run->box->index, fresh->p, &run->text);
    replace_view(run->box, fresh->take());
    run->text.print();
    return 0;
}

static int expunge(Mailbox *box, int report, const ExpungeRules *rules)
{
    end_open_transaction(box);
    if ((box->mode & MAILBOX_NO_WRITE_BACK) || box->index == nullptr) return -1;
    Expunge run = {box, rules, report == 1, {}, {}};
    if (run.transaction.begin(box->path) < 0) {
        trace_sys(&g_logh, 1, 650, "mlmbx_expungen(): mbx_openidx failed %m");
        return -1;
    }
    HostPtr<IndexRecord> fresh(run.transaction.read());
    if (fresh.p == nullptr) {
        trace_sys(&g_logh, 1, 651, "mlmbx_expunge(): mbx_readidx failed %m");
        return -1;
    }
    return same_validity(box->index, fresh.p) ? expunge_same(&run, &fresh)
                                              : expunge_other(&run, &fresh);
}

void mlmbx_expunge(MailboxHandle *handle, int report)
{
    if (handle != nullptr) (void)expunge(mailbox_of(handle), report, &deleted_rules);
}

int mlmbx_expunge2(MailboxHandle *handle, int report)
{
    return handle != nullptr ? expunge(mailbox_of(handle), report, &marked_rules) : -1;
}
