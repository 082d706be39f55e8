/* The list lock and the numbering under it. */
#include "module/mlist_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>

#include "archive/mbx.h"
#include "module/guards.h"
#include "module/os.h"
#include "module/unix_sv.h"
#include "store/file.h"

/* Pauses of one fileopen(), opening and locking together. */
struct RetryBudget {
    int left = 6;
};
#define RETRY_PAUSE_SECONDS 10

/* Whether the failure in errno is a shortage that a pause may end; pauses if so. */
static bool pause_for_shortage(RetryBudget *budget)
{
    KeepErrno keep;
    if (errno != ENOMEM && errno != ENFILE && errno != EMFILE) return false;
    if (budget->left-- <= 0) return false;
    os->sleep(RETRY_PAUSE_SECONDS);
    return true;
}

int fileopen(const char *path, int flags)
{
    RetryBudget budget;
    int fd = open_file(path, flags, 0600);
    while (fd < 0 && pause_for_shortage(&budget))
        fd = open_file(path, flags, 0600);
    if (fd < 0) return -1;

    FdGuard guard(fd);
    int locked = lock_file(fd, LOCK_EX);
    while (locked < 0 && pause_for_shortage(&budget))
        locked = lock_file(fd, LOCK_EX);
    return locked < 0 ? -1 : guard.take();
}

int file_lock(DeliveryJob *job)
{
    char path[PATH_SIZE];
    if (control_path(path, job, "lock") < 0) return -1;
    trace_sys(&g_logh, 11, 350, "mlname=%s lock file ... [fn=%s]", job->list_name, path);
    job->lock_fd = fileopen(path, O_RDWR | O_CREAT);
    if (job->lock_fd >= 0) {
        trace_sys(&g_logh, 11, 352, "mlname=%s ...done lock file [fn=%s]", job->list_name, path);
        return 0;
    }
    if (errno == EAGAIN)
        job->flags |= JOB_LOCK_TIMED_OUT;
    else
        trace_sys(&g_logh, 11, 351, "mlname=%s lock file error %d [fn=%s]", job->list_name, errno,
                  path);
    return -1;
}

void file_unlock(DeliveryJob *job)
{
    if (job->lock_fd < 0) return;
    KeepErrno keep;
    char path[PATH_SIZE];
    (void)control_path(path, job, "lock"); /* it fitted when the lock was taken */
    trace_sys(&g_logh, 11, 354, "unlock file [ml=%s,fn=%s,nn=%u]", job->list_name, path,
              job->new_number);
    (void)lock_file(job->lock_fd, LOCK_UN); /* closing releases it in any case */
    (void)os->close(job->lock_fd);
    job->lock_fd = -1;
}

int get_newno(DeliveryJob *job)
{
    if (read_new_number(job) == 0) return 0;
    trace_sys(&g_logh, 1, 360, "mlname=%s get_newno mbx_newno error", job->list_name);
    return -1;
}

int update_newno(DeliveryJob *job)
{
    ++job->new_number;
    return 0;
}
