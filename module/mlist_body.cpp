/* Body lines, of postings and of command mails, and the loop over all lines. */
#include <errno.h>
#include <string.h>

#include "commands/cmd.h"
#include "module/ascii.h"
#include "module/mlist_access.h"
#include "module/mlist_run.h"
#include "module/outcome.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/str.h"

#define COMMAND_LINE_MAX 1024 /* its line end included */

static const JournalStep body_step = {520, 394};

/* -- the journal -- */

static Verdict journal_failed(Run *run, int error, JournalStep step)
{
    DeliveryJob *job = &run->job;
    errno = error;
    trace_sys(&g_logh, 1, step.msgno, "mlname=%s fputs fail %m [%s]", job->list_name,
              run->journal_path);
    /* A short write sets no errno; a full disk is what makes a write short. */
    if (error == ENOSPC || error == 0) {
        tmperr_put(*job);
        return Verdict::fail;
    }
    char text[128];
    put_outcome(step.code, job->list_name, run->journal_path, error_text(error, text),
                job->thread_id);
    return Verdict::fail;
}

Verdict write_journal(Run *run, const char *text, JournalStep step)
{
    FileRecord *journal = run->job.journal;
    const bool others_wait = journal->write_count > 0;
    const int size = Fputs(text, journal);
    if (size < 0) return journal_failed(run, errno, others_wait ? run->waiting : step);
    if (run->job.parse_state != STATE_BODY) meter_text(&run->header, text);
    if (journal->write_count <= static_cast<uint32_t>(size)) run->waiting = step;
    return Verdict::go_on;
}

Verdict drain_journal(Run *run)
{
    if (Fdrain(run->job.journal) == 0) return Verdict::go_on;
    return journal_failed(run, errno, run->waiting);
}

/* -- postings -- */

static Verdict handle_posting_line(Run *run)
{
    return write_journal(run, run->line, body_step);
}

static bool is_blank_line(const char *line)
{
    return line[strspn(line, " \t\r\n")] == '\0';
}

/* -- command mails -- */

/* Whether the sender is a member now.  Only a command can change the answer, so between commands
   the last one serves: a body of many lines must not mean as many passes over the roster. */
static int sender_is_member(Run *run)
{
    if (run->member_known < 0) run->member_known = mail_access2(&run->job);
    return run->member_known;
}

static Verdict handle_command_line(Run *run)
{
    DeliveryJob *job = &run->job;
    const int access = sender_is_member(run);
    if (access < 0) {
        trace_sys(&g_logh, 1, 395, "mlname=%s mail_access2 fail", job->list_name);
        put_outcome(521, job->list_name, job->thread_id);
        return Verdict::fail;
    }
    job->access_result = access;
    trace_sys(&g_logh, 11, 396, "mlname=%s mail access2 status %d %s", job->list_name, access,
              job->sender);

    const int length = static_cast<int>(strlen(run->line));
    if (length > COMMAND_LINE_MAX) {
        trace_sys(&g_logh, 1, 397, "mlname=%s char/line too long (command) [sl=%d]", job->list_name,
                  length);
        put_outcome(522, job->list_name, length, job->thread_id);
        return Verdict::fail;
    }
    const int done = command_proc(run->line, job);
    if (is_command(run->line)) run->member_known = -1;
    if (done < 0) {
        trace_sys(&g_logh, 1, 398, "mlname=%s command procedure fail", job->list_name);
        put_outcome(523, job->list_name, job->thread_id);
        return Verdict::fail;
    }
    return done == 1 ? Verdict::go_on : write_journal(run, run->line, {524, 399});
}

/* -- any body line -- */

Verdict handle_body_line(Run *run)
{
    DeliveryJob *job = &run->job;
    if (job->parse_state == STATE_FIRST_BODY) {
        if (job->flags & JOB_COMMAND_MAIL)
            job->parse_state = STATE_COMMANDS;
        else if (!is_blank_line(run->line))
            job->parse_state = STATE_BODY;
    }
    return job->parse_state == STATE_COMMANDS ? handle_command_line(run) : handle_posting_line(run);
}

/* -- the whole message -- */

static Verdict read_failed(Run *run, int error)
{
    char text[128];
    errno = error;
    trace_sys(&g_logh, 1, 400, "mlname=%s mlist fgets7 error %m", run->job.list_name);
    put_outcome(525, run->job.list_name, error_text(error, text), run->job.thread_id);
    return Verdict::fail;
}

Verdict copy_message(Run *run)
{
    errno = 0;
    while (fgets_unlocked(run->line, sizeof(run->line), run->message) != nullptr) {
        const Verdict verdict =
            run->job.parse_state == STATE_HEADER ? handle_header_line(run) : handle_body_line(run);
        if (verdict != Verdict::go_on) return verdict;
        run->job.flags &= ~static_cast<uint32_t>(JOB_FIRST_LINE);
        errno = 0;
    }
    return ferror(run->message) ? read_failed(run, errno) : Verdict::go_on;
}

static Verdict write_bottom_banner(Run *run)
{
    DeliveryJob *job = &run->job;
    if (insert_banner_b(job) == 0 && Fdrain(job->journal) == 0) return Verdict::go_on;
    trace_sys(&g_logh, 1, 401, "mlname=%s insert_banner_b fail", job->list_name);
    put_outcome(526, job->list_name, job->thread_id);
    return Verdict::fail;
}

Verdict close_files(Run *run)
{
    fclose(run->message);
    run->message = nullptr;
    if (drain_journal(run) != Verdict::go_on) return Verdict::fail;
    if (write_bottom_banner(run) != Verdict::go_on) return Verdict::fail;
    FileRecord *journal = run->job.journal;
    run->job.journal = nullptr;
    run->job.journal_size = static_cast<uint32_t>(journal->written);
    if (f_close(journal)) return Verdict::go_on;
    /* The bytes did not reach the disk: the machine's fault, so the sender's server keeps the mail
       and tries again. */
    const int error = errno;
    setrc_tempfail();
    return journal_failed(run, error, body_step);
}
