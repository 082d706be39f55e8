/* Paths below the two roots, and what a list's control directory is made of. */
#include <errno.h>
#include <fcntl.h>

#include "module/guards.h"
#include "module/join.h"
#include "module/os.h"
#include "module/outcome.h"
#include "module/tcb.h"
#include "store/file.h"

int list_path(char *out, const char *root, const char *domain, const char *list, const char *name)
{
    /* As every text of the module, a path leaves one byte of its buffer unused. */
    return join_texts(out, PATH_SIZE - 1, {root, "/", domain, "/", list, "/", name});
}

int control_path(char *out, const DeliveryJob *job, const char *name)
{
    return list_path(out, g_path_mlist, job->domain, job->list_name, name);
}

int archive_path(char *out, const DeliveryJob *job, const char *name)
{
    return list_path(out, g_mbox_list, job->domain, job->list_name, name);
}

/* -- directories -- */

static int make_directory(DeliveryJob *job, const char *name)
{
    char path[PATH_SIZE];
    if (control_path(path, job, name) == 0 && (os->mkdir(path, 0777) == 0 || errno == EEXIST))
        return 0;
    put_outcome(470, path);
    setrc_tempfail();
    return -1;
}

int check_directory(DeliveryJob *job)
{
    if (job == nullptr) return 0;
    return make_directory(job, "msg") < 0 || make_directory(job, "jnl") < 0 ? -1 : 0;
}

/* -- files -- */

static void make_file(DeliveryJob *job, const char *name)
{
    char path[PATH_SIZE];
    if (control_path(path, job, name) < 0) return;
    FdGuard file(open_file(path, O_WRONLY | O_CREAT, 0660));
    if (file.fd >= 0) (void)os->fsync(file.fd); /* an empty file has nothing to lose */
}

int check_file(DeliveryJob *job)
{
    static const char *const names[] = {"digest", "active",  "member",
                                        "status", "dgtstat", "confirm"};
    if (job == nullptr) return 1;
    for (const char *name : names)
        make_file(job, name);
    return 1;
}
