/* header_proc(): one header line of a posting, from the pipeline. */
#include "headers/head.h"

#include <string.h>

#include "headers/head_table.h"
#include "module/ascii.h"
#include "module/unix_sv.h"

static constexpr char received_name[] = "Received:";
static constexpr char x_received_name[] = "X-Received: ";
static constexpr size_t RECEIVED_SIZE = sizeof received_name - 1;
static constexpr size_t X_RECEIVED_SIZE = sizeof x_received_name - 1;

/* KEPT: the name's colon is followed by a blank of its own and then by the old value, so that an
   ordinary line shows two.  Test: HeaderProc.ReceivedBecomesXReceivedWithTwoBlanks */
static void rename_received(DeliveryJob *job, char *line)
{
    const size_t rest = strlen(line) - RECEIVED_SIZE;
    if (X_RECEIVED_SIZE + rest + 1 <= LINE_SIZE) {
        memmove(line + X_RECEIVED_SIZE, line + RECEIVED_SIZE, rest + 1);
    } else {
        trace_sys(&g_logh, 3, 316, "mlname=%s not enough x-received buffer -no edit- [strlen=%d]",
                  job->list_name, static_cast<int>(rest + X_RECEIVED_SIZE));
        memmove(line + X_RECEIVED_SIZE, line + RECEIVED_SIZE, LINE_SIZE - X_RECEIVED_SIZE - 3);
        /* KEPT: LF before CR.  Test: HeaderProc.OverlongReceivedIsCutAndEndsInLfCr */
        memcpy(line + LINE_SIZE - 3, "\n\r", 3);
    }
    memcpy(line, x_received_name, X_RECEIVED_SIZE);
}

/* Cuts a line that leaves no room for CR LF and NUL; no line of the pipeline is that long. */
static void leave_room_for_line_end(char *line)
{
    const size_t length = strlen(line);
    if (length > LINE_SIZE - 3 && strcmp(line + length - 2, "\r\n") != 0)
        line[LINE_SIZE - 3] = '\0';
}

static char *find_value(const HeaderRow &row, char *line, bool continued)
{
    char *value = line + (continued ? 1 : strlen(row.name));
    return row.skip_blank && *value == ' ' ? value + 1 : value;
}

static int collect_value(const HeaderRow &row, char *line, DeliveryJob *job, bool continued)
{
    if (row.collect == nullptr) return 0;
    if (row.rule == HeaderRule::loop_check) leave_room_for_line_end(line);
    if (row.collect(job, find_value(row, line, continued)) == 0) return 0;
    trace_sys(&g_logh, 5, 1, "%s", row.failure);
    return -1;
}

static int keep_reply_to(DeliveryJob *job)
{
    if (job->settings.reply_to_mode == REPLYEDIT_CHANGE) return HEADER_DROP;
    job->header_mask &= ~static_cast<uint32_t>(ADD_REPLY_TO);
    return HEADER_KEEP;
}

static int apply_rule(HeaderRule rule, char *line, DeliveryJob *job, bool continued)
{
    switch (rule) {
    case HeaderRule::keep:
        return HEADER_KEEP;
    case HeaderRule::drop:
        return HEADER_DROP;
    case HeaderRule::to_x_received:
        if (!continued) rename_received(job, line);
        return HEADER_KEEP;
    case HeaderRule::edited_subject:
        return job->settings.subject_mode == SUBJECT_NOEDIT ? HEADER_KEEP : HEADER_DROP;
    case HeaderRule::loop_check:
        return HEADER_LOOP_CHECK;
    case HeaderRule::own_errors_to:
        job->header_mask &= ~static_cast<uint32_t>(ADD_ERRORS_TO);
        return HEADER_KEEP;
    case HeaderRule::own_reply_to:
        return keep_reply_to(job);
    case HeaderRule::mailbox_envelope:
        return (job->flags & JOB_FIRST_LINE) != 0 ? HEADER_DROP : HEADER_KEEP;
    }
    return HEADER_KEEP;
}

int header_proc(char *line, DeliveryJob *job)
{
    const bool continued = is_blank(static_cast<unsigned char>(line[0]));
    if (!continued) job->header_index = find_header_row(line);
    if (job->header_index < 0) return HEADER_KEEP;

    const HeaderRow &row = header_rows[job->header_index];
    if (collect_value(row, line, job, continued) < 0) return HEADER_FAIL;
    return apply_rule(row.rule, line, job, continued);
}
