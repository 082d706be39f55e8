/* The end of a delivery: commands answered, posting denied or distributed. */
#include <errno.h>
#include <string.h>

#include "commands/cmd.h"
#include "commands/reply.h"
#include "mlist/mlist.h"
#include "module/mlist_access.h"
#include "module/mlist_lock.h"
#include "module/mlist_run.h"
#include "module/os.h"
#include "module/outcome.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/str.h"

Verdict step_failed(Run *run, const char *text, int code, int msgno)
{
    trace_sys(&g_logh, 1, msgno, "mlname=%s %s", run->job.list_name, text);
    put_outcome(code, run->job.list_name, run->job.thread_id);
    return Verdict::fail;
}

void delete_or_log(const Run *run, const char *path)
{
    if (delfile(path) == 0) return;
    trace_sys(&g_logh, 3, 403, "mlname=%s can't delete %m [%s]", run->job.list_name, path);
}

bool submit_file(Run *run, const char *file, const char *const *recipients,
                 const char *recipient_file)
{
    char sender[OWNER_ADDRESS_SIZE];
    owner_address(&run->job, sender);
    char result[MLIST_RESULT_TEXT_SIZE] = {};
    if (run->job.submit(file, sender, recipients, recipient_file, result) == 0) return false;
    result[sizeof(result) - 1] = '\0';
    if (result[0] == '\0') return true;
    const char *kept = run->request->keep_text(result);
    if (kept != nullptr) thread_context()->host_text = kept;
    return true;
}

/* -- command mails -- */

static Verdict answer_nothing(Run *run, int code, int msgno)
{
    if (nothing_cmd(&run->job) < 0) return step_failed(run, "nothing command fail", code, msgno);
    return Verdict::succeed;
}

/* -- denial -- */

Verdict deny(Run *run, const char *reason)
{
    DeliveryJob *job = &run->job;
    if (create_mldeny(job, reason) < 0) return step_failed(run, "create_mldeny fail", 530, 406);

    char name[32];
    snprintf_(name, sizeof(name), "msg/mldeny.%d", job->thread_id);
    char notice[PATH_SIZE];
    (void)control_path(notice, job, name); /* it fitted when the notice was written */
    char owner[OWNER_ADDRESS_SIZE];
    owner_address(job, owner);
    const char *const recipients[] = {job->sender[0] != '\0' ? job->sender : owner, nullptr};
    if (!submit_file(run, notice, recipients, nullptr))
        return step_failed(run, "mlist mailfile1 fail", 531, 407);

    delete_or_log(run, notice);
    trace_sys(&g_logh, 5, 408, "Distribution Denied Log: %s %s", job->list_name, job->sender);
    return Verdict::succeed;
}

/* -- distribution -- */

static Verdict record_for_digest(Run *run)
{
    char path[PATH_SIZE];
    if (control_path(path, &run->job, "dgtstat") < 0 ||
        set_dstfile(&run->job, path, run->job.new_number) < 0)
        return step_failed(run, "set dgtstat fail", 532, 409);
    return Verdict::go_on;
}

static Verdict archive_and_number(Run *run)
{
    if (mlappend(&run->job) < 0) return step_failed(run, "mlappend fail", 534, 411);
    if (update_newno(&run->job) < 0) return step_failed(run, "update_newno fail", 535, 412);
    return Verdict::go_on;
}

/* KEPT: the journal's name is one more than the posting's number.
   Test: Posting.TheJournalIsHandedOverUnderTheNextNumber */
static Verdict name_journal(Run *run, char *numbered)
{
    DeliveryJob *job = &run->job;
    char name[32];
    snprintf_(name, sizeof(name), "jnl/%u", job->new_number);
    if (control_path(numbered, job, name) == 0 && os->rename(run->journal_path, numbered) == 0)
        return Verdict::go_on;
    char text[128];
    const char *reason = error_text(errno, text);
    trace_sys(&g_logh, 1, 410, "mlname=%s can't move %m [%s %s]", job->list_name, run->journal_path,
              numbered);
    put_outcome(536, job->list_name, reason, run->journal_path, numbered, job->thread_id);
    return Verdict::fail;
}

static Verdict hand_over(Run *run, const char *numbered)
{
    DeliveryJob *job = &run->job;
    if (notexist_active(job) != 0) return Verdict::go_on; /* archived, and nobody to send it to */

    file_unlock(job); /* the hand-off may take its time; the next posting need not wait */
    char active[PATH_SIZE];
    (void)control_path(active, job, "active");
    if (submit_file(run, numbered, nullptr, active)) return Verdict::go_on;
    trace_sys(&g_logh, 1, 413, "mlname=%s mlist mailfile2 fail", job->list_name);
    put_outcome(537, job->list_name, job->thread_id);
    run->exit_code = MLIST_EXIT_LATER;
    return Verdict::leave;
}

Verdict distribute(Run *run)
{
    char numbered[PATH_SIZE];
    Verdict verdict = record_for_digest(run);
    if (verdict == Verdict::go_on) verdict = archive_and_number(run);
    if (verdict == Verdict::go_on) verdict = name_journal(run, numbered);
    if (verdict == Verdict::go_on) verdict = hand_over(run, numbered);
    if (verdict != Verdict::go_on) return verdict;
    delete_or_log(run, numbered);
    return Verdict::succeed;
}

/* -- which of them -- */

Verdict decide(Run *run)
{
    DeliveryJob *job = &run->job;
    const bool command_seen = (job->flags & JOB_COMMAND_SEEN) != 0;
    const bool command_mail = (job->flags & JOB_COMMAND_MAIL) != 0;

    if (job->parse_state == STATE_HEADER)
        return step_failed(run, "input error (no text)", 528, 404);
    if (job->parse_state == STATE_COMMANDS) {
        if (!command_seen) return answer_nothing(run, 527, 402);
        delete_or_log(run, run->journal_path);
        return Verdict::succeed;
    }
    if (command_mail && !command_seen) return answer_nothing(run, 529, 405);

    if (job->settings.nonmembers_may_post == 0 && job->access_result == 0) return deny(run, "");
    if (job->oversize) return deny(run, job->oversize_reason);
    return distribute(run);
}
