/* Header lines of the message, and what the list adds at the header's end. */
#include <errno.h>
#include <string.h>

#include "headers/head.h"
#include "module/mlist_access.h"
#include "module/mlist_run.h"
#include "module/outcome.h"
#include "module/unix_sv.h"
#include "store/file.h"

#define HEADER_LINE_MAX 1024 /* its line end included */

static Verdict check_loop(Run *run)
{
    DeliveryJob *job = &run->job;
    if (loop_mail(job) == 0) return Verdict::go_on;
    trace_sys(&g_logh, 1, 383, "mlname=%s loop detected (X-ML-Name: %s)", job->list_name,
              job->xml_name);
    put_outcome(510, job->xml_name, job->thread_id);
    return Verdict::fail;
}

static Verdict check_sender(Run *run)
{
    DeliveryJob *job = &run->job;
    make_owner_string(job->sender);
    const int access = mail_access(job);
    if (access < 0) return step_failed(run, "mail_access fail", 511, 384);
    job->access_result = access;
    trace_sys(&g_logh, 11, 385, "mlname=%s mail access status %d %s", job->list_name, access,
              job->sender);
    return Verdict::go_on;
}

static Verdict write_added_lines(Run *run)
{
    static int (*const builders[])(char *, int, DeliveryJob *) = {header_add, header_add2};
    for (const auto build : builders) {
        char lines[LINE_SIZE];
        lines[0] = '\0';
        if (build(lines, sizeof(lines), &run->job) < 0)
            return step_failed(run, "header_add fail", 512, 386);
        if (lines[0] == '\0') continue;
        const Verdict verdict = write_journal(run, lines, {513, 387});
        if (verdict != Verdict::go_on) return verdict;
    }
    return Verdict::go_on;
}

static Verdict write_subject(Run *run)
{
    char line[LINE_SIZE];
    line[0] = '\0';
    if (header_sub(line, sizeof(line), &run->job) < 0)
        return step_failed(run, "header_sub fail", 514, 388);
    if (run->job.settings.subject_mode != SUBJECT_EDIT) return Verdict::go_on;
    return write_journal(run, line, {515, 389});
}

static Verdict write_blank_line(Run *run)
{
    const Verdict verdict = write_journal(run, run->line, {516, 390});
    run->job.journal_header_size = metered_size(&run->header);
    return verdict;
}

static Verdict write_top_banner(Run *run)
{
    if (insert_banner_t(&run->job) < 0) return step_failed(run, "insert_banner_t fail", 517, 391);
    return Verdict::go_on;
}

/* A journal that cannot be written sends the mail back for later: before the first command is
   carried out, so that the next try does not do it a second time. */
static Verdict finish_header(Run *run)
{
    return run->job.flags & JOB_COMMAND_MAIL ? drain_journal(run) : Verdict::go_on;
}

static Verdict end_header(Run *run)
{
    static Verdict (*const steps[])(Run *) = {
        check_loop,       check_sender,     write_added_lines, write_subject,
        write_blank_line, write_top_banner, finish_header,
    };
    run->job.parse_state = STATE_FIRST_BODY;
    for (const auto step : steps) {
        const Verdict verdict = step(run);
        if (verdict != Verdict::go_on) return verdict;
    }
    return Verdict::go_on;
}

Verdict handle_header_line(Run *run)
{
    DeliveryJob *job = &run->job;
    const int length = static_cast<int>(strlen(run->line));
    if (length > HEADER_LINE_MAX) {
        trace_sys(&g_logh, 1, 382, "mlname=%s char/line too long (header) [sl=%d]", job->list_name,
                  length);
        put_outcome(509, job->list_name, length, job->thread_id);
        return Verdict::fail;
    }
    const char first = run->line[0];
    if (first == '\n' || first == '\r' || first == '\0') return end_header(run);

    switch (header_proc(run->line, job)) {
    case HEADER_FAIL:
        return step_failed(run, "header_proc fail", 518, 392);
    case HEADER_DROP:
        return Verdict::go_on;
    case HEADER_LOOP_CHECK:
        if (check_loop(run) != Verdict::go_on) return Verdict::fail;
        break;
    default:
        break;
    }
    return write_journal(run, run->line, {519, 393});
}
