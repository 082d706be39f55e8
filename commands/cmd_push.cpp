/* "push": the pending digest goes out, and its record begins anew. */
#include "commands/cmd.h"
#include "commands/cmd_archive.h"
#include "commands/cmd_args.h"
#include "commands/reply.h"
#include "module/host_mem.h"
#include "module/unix_sv.h"
#include "store/confirm.h"
#include "store/file.h"
#include "store/str.h"

#define PENDING_SIZE 8192

static const FailText open_failed(1, 71, "mlname=%s cmd_push():mbxopen failure[fn=%s]");
static const FailText pending_failed(1, 72, "mlname=%s get_dstfile fail at push");
static const FailText conv_failed(1, 73, "mlname=%s conv_argstr fail at push");
static const FailText create_failed(1, 74, "mlname=%s create cmdrpy fail -normal- at push");
static const FailText send_failed(1, 75, "mlname=%s mailfile fail at push");
static const FailText reset_failed(1, 78, "mlname=%s reset_dstfile fail at push");
static const FailText clean_failed(1, 79, "mlname=%s cln cnfrmdb error at push");

/* Hands one digest over, if anyone takes digests; its file goes either way. */
static int submit_digest(DeliveryJob *job, const char *list)
{
    char name[32], path[PATH_SIZE], owner[LIST_NAME_SIZE + DOMAIN_SIZE + 16];
    snprintf_(name, sizeof(name), "msg/cmdrpy.%d", job->thread_id);
    if (control_path(path, job, name) < 0) return log_failure(send_failed, job->list_name);
    snprintf_(owner, sizeof(owner), "owner-%s@%s", job->list_name, job->domain);
    char result[MLIST_RESULT_TEXT_SIZE] = {};
    const bool wanted = notexist_digest(job) == 0;
    const bool sent = !wanted || job->submit(path, owner, nullptr, list, result) != 0;
    (void)delfile(path); /* the next reply of this thread overwrites what stays */
    return sent ? 0 : log_failure(send_failed, job->list_name);
}

static int send_batch(DeliveryJob *job, const char *list)
{
    if (create_cmdrpy(job, COMMAND_PUSH, list, VARIANT_NORMAL) < 0)
        return log_failure(create_failed, job->list_name);
    if (submit_digest(job, list) < 0) return -1;
    char shown[LINE_SIZE];
    trace_sys(&g_logh, 5, 76, "Digest Mails Log:  %s %s\r\nSucceeded", job->list_name,
              short_argstr(list, shown, sizeof(shown)));
    return 0;
}

/* Sends every pending message that is still there. */
static int send_pending(DeliveryJob *job, const char *pending)
{
    unsigned char *set = nullptr;
    size_t size = 0;
    if (pending[0] != '\0' && conv_argstr(job, pending, &set, &size) < 0)
        return log_failure(conv_failed, job->list_name);
    const HostPtr<unsigned char> owner(set);

    BatchWalk walk(job, set, size);
    char list[NUMBER_LIST_SIZE];
    bool any = false;
    while (set != nullptr && walk.next(list)) {
        any = true;
        if (send_batch(job, list) < 0) return -1;
    }
    if (!any)
        trace_sys(&g_logh, 5, 77, "Digest Mails Log:  %s (nothing)\r\nSucceeded", job->list_name);
    return 0;
}

int cmd_push(DeliveryJob *job)
{
    OpenArchive archive(job);
    if (archive.open(open_failed) < 0) return -1;
    char path[PATH_SIZE], pending[PENDING_SIZE] = "";
    if (control_path(path, job, "dgtstat") < 0 ||
        get_dstfile(job, path, pending, sizeof(pending)) < 0)
        return log_failure(pending_failed, job->list_name);
    if (send_pending(job, pending) < 0) return -1;

    archive.close();
    if (reset_dstfile(job, path) < 0) return log_failure(reset_failed, job->list_name);
    if (cln_cnfrmdb(job) < 0) return log_failure(clean_failed, job->list_name);
    return 0;
}
