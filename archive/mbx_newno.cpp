/* The list's next message number. */
#include <errno.h>
#include <stdio.h>

#include "archive/mbx.h"
#include "mlist/mlist.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/job.h"
#include "module/os.h"
#include "module/tcb.h"
#include "module/unix_sv.h"

static int open_failure(const DeliveryJob *job, const char *path)
{
    KeepErrno keep;
    fprintf(job->output != nullptr ? job->output : mlist_get_output(), "mbxopen failure [fn=%s]\n",
            path);
    trace_sys(&g_logh, 1, 1, "mbxnewno():mbxopen failure[fn=%s]", path);
    setrc_tempfail();
    return -1;
}

/* What list_mbx_open() in the mode that writes nothing does, and closing, without the handle.
   kept: the index's file from the last time, if any, and for the next time. */
static int number_of(const char *path, uint32_t *number_out, KeptIndex *kept)
{
    IndexTransaction transaction;
    MailboxSummary summary;
    HostPtr<IndexRecord> index(load_view(&transaction, path, &summary, kept));
    if (index.p == nullptr) return -1;
    *kept = transaction.keep_file();
    print_summary(&summary, MAILBOX_NO_WRITE_BACK);
    *number_out = uid_next(index.p);
    return 0;
}

int read_new_number(DeliveryJob *job)
{
    char path[PATH_SIZE];
    const int length =
        snprintf(path, sizeof(path), "%s/%s/%s/INBOX", g_mbox_list, job->domain, job->list_name);
    if (length < 0 || length >= PATH_SIZE) {
        errno = ENAMETOOLONG;
        return open_failure(job, path);
    }
    if (number_of(path, &job->new_number, &job->index) == 0) return 0;
    KeepErrno keep;
    (void)list_mbx_rebuild(path); /* as after every open that failed */
    return open_failure(job, path);
}

int mbxnewno(DeliveryJob *job)
{
    const int result = read_new_number(job);
    if (job->index.fd > 0) (void)os->close(job->index.fd); /* only read */
    job->index.fd = 0;
    return result;
}
