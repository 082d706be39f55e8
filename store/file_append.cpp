/* The archive hand-off: a posting's journal becomes the archive's next message, and the archive is
   cut to the number of messages that the list keeps. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "archive/mbx.h"
#include "archive/mbx_post.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "store/fail_text.h"
#include "store/file.h"
#include "store/rewrite.h"

static const FailText append_open(1, 293, "mlname=%s mlappend f_open error %m [fn=%s]\n");
static const FailText append_read(1, 294, "mlname=%s mlappend fgets error %m [%s]");
static const FailText append_mailbox(5, 295, "mlname=%s mlappend mbxopen failure %m [fn=%s]");
static const FailText append_message(1, 296, "mlname=%s mbxappend error %m [fn=%s]");

/* -- the journal -- */

struct Journal {
    char path[PATH_SIZE];
    uint32_t size;
    uint32_t header_size;
};

/* Adds up the lines, as handed out, up to and with the first empty one.  0, or -1. */
static int measure_header(FileRecord *file, uint32_t *size_out)
{
    char line[8192];
    size_t sum = 0;
    bool in_header = true;
    while (in_header && Fgets(line, sizeof(line), file) != nullptr) {
        sum += strlen(line);
        in_header = strcmp(line, "\r\n") != 0;
    }
    *size_out = static_cast<uint32_t>(sum);
    return in_header && Ferror(file) != 0 ? -1 : 0;
}

static int measure_file(DeliveryJob *job, Journal *journal)
{
    const int64_t size = stat_size(journal->path);
    journal->size = static_cast<uint32_t>(size);
    FileRecord *file = size < 0 ? nullptr : f_open(journal->path, "r");
    if (file == nullptr) return log_failure(append_open, job->list_name, journal->path);
    const int measured = measure_header(file, &journal->header_size);
    if (measured < 0) (void)log_failure(append_read, job->list_name, journal->path);
    abandon_file(file);
    return measured;
}

/* Whoever wrote the journal may know what it measures. */
static int find_journal(DeliveryJob *job, Journal *journal)
{
    char name[32];
    snprintf(name, sizeof(name), "jnl/j.%d", job->thread_id);
    if (control_path(journal->path, job, name) < 0)
        return log_failure(append_open, job->list_name, journal->path);
    if (job->journal_header_size == 0) return measure_file(job, journal);
    journal->size = job->journal_size;
    journal->header_size = job->journal_header_size;
    return 0;
}

/* -- a keep count above or below zero: append, and trim to it -- */

static int append_to_archive(DeliveryJob *job, const char *box)
{
    Journal journal;
    if (find_journal(job, &journal) < 0) return -1;
    const PostedFile file = {journal.path, journal.header_size, journal.size};
    switch (mbx_post(box, &file, job->settings.journal, &job->append_uid, &job->index)) {
    case PostResult::not_opened:
        return log_failure(append_mailbox, job->list_name, box);
    case PostResult::not_appended:
        return log_failure(append_message, job->list_name, box);
    case PostResult::posted:
        break;
    }
    return 0;
}

/* -- a keep count of zero: empty the archive -- */

static void remove_message(DeliveryJob *job, uint32_t uid)
{
    char name[32];
    char path[PATH_SIZE];
    snprintf(name, sizeof(name), "INBOX/#msg/%u", uid);
    if (archive_path(path, job, name) == 0) (void)os->unlink(path); /* the index forgot it */
}

/* Counts the posting without keeping it, or any other.  The files go after the index is on disk: a
   crash in between leaves files that no index names, never an index that names missing files.
   The transaction, and with it the lock, ends on every path. */
static int empty_archive(DeliveryJob *job, const char *box)
{
    IndexTransaction transaction;
    if (transaction.begin(box) < 0) return -1;
    HostPtr<IndexRecord> index(transaction.read());
    if (index.p == nullptr) return -1;

    const uint32_t count = record_count(index.p);
    uid_next(index.p) += 1;
    record_count(index.p) = 1;
    struct timespec changed;
    if (transaction.write(index.p) < 0 || transaction.end(&changed) < 0) return -1;
    for (uint32_t i = 1; i < count; ++i)
        remove_message(job, index.p[i].uid);
    return 0;
}

int mlappend(DeliveryJob *job)
{
    char box[PATH_SIZE];
    if (archive_path(box, job, "INBOX") < 0)
        return log_failure(append_mailbox, job->list_name, box);
    return job->settings.journal == 0 ? empty_archive(job, box) : append_to_archive(job, box);
}
