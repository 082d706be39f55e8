/* Reconciliation of a handle's view with a fresh read of the index; shared by both checks and
   both expunges. */
#ifndef ARCHIVE_MBX_SYNC_H
#define ARCHIVE_MBX_SYNC_H

#include "archive/mbx.h"
#include "archive/report.h"

/* What differs between the four operations. */
struct SyncRules {
    bool report;             /* print what other handles changed */
    bool keep_view;          /* the view stays: it adopts flags and marks what vanished */
    bool carry_expunge_mark; /* the view's expunge marks hold for the fresh index */
};

struct SyncResult {
    bool taken;         /* a flag change of the handle went into the fresh index: write it */
    bool vanished;      /* a message of the view is gone */
    uint32_t first_new; /* first record that the view does not know; the count when none */
};

SyncResult reconcile(IndexRecord *view, IndexRecord *fresh, const SyncRules *rules,
                     ReportText *report);

/* Marks the flag changes of the view as pending in the fresh index: they could not be written. */
void keep_pending_marks(IndexRecord *view, IndexRecord *fresh);

/* "* n EXISTS" and "* n RECENT" of a block. */
void report_messages(IndexRecord *index, ReportText *report);

/* What a view of another UIDVALIDITY announces: all of it gone, then what there is now. */
void report_replacement(IndexRecord *view, IndexRecord *fresh, ReportText *report);

inline bool same_validity(IndexRecord *view, IndexRecord *fresh)
{
    return uid_validity(view) == uid_validity(fresh);
}

#endif
