#include "archive/mbx_sync.h"

static void report_flags(const IndexRecord *record, uint32_t sequence, ReportText *report)
{
    char item[FLAGS_ITEM_SIZE];
    report->add("* %d FETCH (%s)\r\n", static_cast<int>(sequence), flags_item(item, record->flags));
}

/* Flags differ.  The handle's own change wins over what the index says; 1 when it did. */
static bool settle_flags(IndexRecord *mine, IndexRecord *fresh, const SyncRules *rules)
{
    constexpr uint32_t handle_only = MESSAGE_CHANGED | MESSAGE_VANISHED;
    const bool taken = mine->flags & MESSAGE_CHANGED;
    if (taken) fresh->flags = mine->flags & ~handle_only;
    if (rules->keep_view) mine->flags = fresh->flags;
    return taken;
}

/* The same message in both. */
static void settle_message(IndexRecord *mine, IndexRecord *fresh, uint32_t sequence,
                           const SyncRules *rules, SyncResult *result, ReportText *report)
{
    if (rules->carry_expunge_mark)
        fresh->flags = (fresh->flags & ~static_cast<uint32_t>(MESSAGE_EXPUNGE)) |
                       (mine->flags & MESSAGE_EXPUNGE);
    if ((mine->flags ^ fresh->flags) & MESSAGE_COMPARED) {
        if (settle_flags(mine, fresh, rules))
            result->taken = true;
        else if (rules->report)
            report_flags(fresh, sequence, report);
        return;
    }
    fresh->flags |= mine->flags & MESSAGE_RECENT;
    /* The index has the change by now; a mark that stayed would undo the next one of others. */
    mine->flags &= ~static_cast<uint32_t>(MESSAGE_CHANGED);
}

static void settle_vanished(IndexRecord *mine, uint32_t sequence, const SyncRules *rules,
                            SyncResult *result, ReportText *report)
{
    result->vanished = true;
    if (rules->keep_view)
        mine->flags |= MESSAGE_VANISHED;
    else if (rules->report)
        report->add("* %d EXPUNGE\r\n", static_cast<int>(sequence));
}

SyncResult reconcile(IndexRecord *view, IndexRecord *fresh, const SyncRules *rules,
                     ReportText *report)
{
    SyncResult result = {false, false, 1};
    uint32_t sequence = 1;
    uint32_t &j = result.first_new;
    for (uint32_t i = 1; i < record_count(view); ++i) {
        const bool more = j < record_count(fresh);
        if (more && view[i].uid == fresh[j].uid) {
            settle_message(&view[i], &fresh[j], sequence, rules, &result, report);
            ++j;
            ++sequence;
        } else if (more && view[i].uid > fresh[j].uid) {
            break;
        } else {
            /* KEPT: sequence does not move on, also where the view keeps the message, so that
               later FETCH lines of that check are numbered too low.
               Test: CheckNewMail2.NumbersFetchLinesWithoutTheVanished */
            settle_vanished(&view[i], sequence, rules, &result, report);
        }
    }
    return result;
}

void keep_pending_marks(IndexRecord *view, IndexRecord *fresh)
{
    uint32_t j = 1;
    for (uint32_t i = 1; i < record_count(view); ++i) {
        while (j < record_count(fresh) && fresh[j].uid < view[i].uid)
            ++j;
        if (j < record_count(fresh) && fresh[j].uid == view[i].uid)
            fresh[j].flags |= view[i].flags & MESSAGE_CHANGED;
    }
}

void report_messages(IndexRecord *index, ReportText *report)
{
    report->add("* %d EXISTS\r\n", static_cast<int>(message_count(index)));
    report->add("* %d RECENT\r\n", static_cast<int>(count_recent(index)));
}

void report_replacement(IndexRecord *view, IndexRecord *fresh, ReportText *report)
{
    for (uint32_t i = 1; i < record_count(view); ++i)
        report->add("* 1 EXPUNGE\r\n");
    if (record_count(fresh) > 1) report_messages(fresh, report);
}
