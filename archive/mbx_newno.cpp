/* The list's next message number. */
#include <errno.h>
#include <stdio.h>

#include "archive/mbx.h"
#include "mlist/mlist.h"
#include "module/guards.h"
#include "module/job.h"
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

int mbxnewno(DeliveryJob *job)
{
    char path[PATH_SIZE];
    const int length =
        snprintf(path, sizeof(path), "%s/%s/%s/INBOX", g_mbox_list, job->domain, job->list_name);
    if (length < 0 || length >= PATH_SIZE) {
        errno = ENAMETOOLONG;
        return open_failure(job, path);
    }
    MailboxHandle *box = list_mbx_open(path, MAILBOX_NO_WRITE_BACK);
    if (box == nullptr) return open_failure(job, path);
    job->new_number = uid_next(box->index);
    list_mbx_close(box);
    return 0;
}
