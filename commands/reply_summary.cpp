/* Summary lines: date, number, sender and subject of archived messages. */
#include <errno.h>
#include <string.h>

#include "archive/mbx.h"
#include "codec/conv.h"
#include "commands/cmd_args.h"
#include "commands/reply_file.h"
#include "headers/head.h"
#include "module/ascii.h"
#include "module/sink.h"
#include "store/str.h"

#define OWNER_COLUMN_END 34
#define OWNER_COLUMNS_LEAST 8
#define SUBJECT_COLUMNS 42
#define SUMMARY_LINE_SIZE 16384

static const FailText from_failed(1, 224, "mlname=%s create_cmdrpy head_from error ");
static const FailText subject_failed(1, 225, "mlname=%s create_cmdrpy head_subject error ");

/* What a line is made of.  From and subject are collected in the job's own fields, which are put
   back afterwards: the sender of the command is still needed. */
struct Summary {
    ReplyFile *reply;
    DeliveryJob *job;
    uint32_t number;
    char date[LINE_SIZE];
};

enum SummaryHeader { OTHER = -1, DATE = 0, FROM = 1, SUBJECT = 2 };
static const char *const str_subhead[] = {"Date: ", "From: ", "Subject: "};

static int find_header(const char *line)
{
    for (int i = DATE; i <= SUBJECT; ++i)
        if (begins_nocase(line, str_subhead[i])) return i;
    return OTHER;
}

static void collect(Summary *summary, int header, const char *value)
{
    switch (header) {
    case FROM:
        if (head_from(summary->job, value) < 0)
            (void)log_failure(from_failed, summary->job->list_name);
        break;
    case SUBJECT:
        if (head_subject(summary->job, value) < 0)
            (void)log_failure(subject_failed, summary->job->list_name);
        break;
    default:
        break;
    }
}

static void take_date(Summary *summary, char *value)
{
    chop(value);
    datestr(value, summary->date, sizeof(summary->date));
}

/* Reads the header of a message.  0, or -1 on a read error (reported). */
static int read_header(Summary *summary, FileRecord *message)
{
    static const FailText failed(1, 226, "mlname=%s create_cmdrpy fgets2 error %m [%s]");
    char line[LINE_SIZE];
    int header = OTHER;
    while (Fgets(line, sizeof(line), message) != nullptr) {
        if (line[0] == '\r' || line[0] == '\n') return 0;
        if (is_blank(static_cast<unsigned char>(line[0]))) {
            collect(summary, header, line + 1); /* a date's continuation is of no use */
            continue;
        }
        header = find_header(line);
        if (header == DATE)
            take_date(summary, line + strlen(str_subhead[DATE]));
        else if (header != OTHER)
            collect(summary, header, line + strlen(str_subhead[header]));
    }
    if (!Ferror(message)) return 0;
    err_printf("fgets error %d [%s]\n", errno, summary->reply->path);
    return log_failure(failed, summary->job->list_name, summary->reply->path);
}

/* -- the line -- */

/* The owner's columns: up to the 34th, or eight where the date has taken those. */
static size_t put_owner(char *line, size_t used, const char *owner)
{
    const size_t columns = used < OWNER_COLUMN_END ? OWNER_COLUMN_END - used : OWNER_COLUMNS_LEAST;
    const size_t length = strnlen(owner, columns);
    memcpy(line + used, owner, length);
    memset(line + used + length, ' ', columns - length);
    return used + columns;
}

/* The subject, cut without leaving half a character or an open run behind. */
static size_t put_subject(char *line, size_t used, const char *subject)
{
    int cut = 0;
    const int mode = sprtjis(subject, SUBJECT_COLUMNS, 0, &cut);
    const size_t length = mode >= 0 && mode <= 2 ? static_cast<size_t>(cut) : strlen(subject);
    memcpy(line + used, subject, length);
    used += length;
    if (mode == 1 || mode == 2) {
        memcpy(line + used, g_kout2, strlen(g_kout2));
        used += strlen(g_kout2);
    }
    return used;
}

static int put_line(Summary *summary)
{
    static const FailText decode_failed(1, 227, "mlname=%s create_cmdrpy decode fail");
    static const WriteTexts write = {"fputs",
                                     {1, 228, "mlname=%s create_cmdrpy fputs5 error %m [%s]"}};
    DeliveryJob *job = summary->job;
    make_owner_string(job->sender);
    char subject[LINE_SIZE];
    if (decode(job->subject, subject, sizeof(subject)) < 0)
        return log_failure(decode_failed, job->list_name);
    int re_flag = 0;
    const char *text = detect_subfmt(job, subject, &re_flag, 0);

    char line[SUMMARY_LINE_SIZE];
    const int head = snprintf_(line, LINE_SIZE + 32, "%s [%u:", summary->date, summary->number);
    size_t used = put_owner(line, static_cast<size_t>(head), job->sender);
    memcpy(line + used, "] ", 2);
    used = put_subject(line, used + 2, text);
    memcpy(line + used, "\r\n", 3);
    return reply_put(summary->reply, line, write);
}

static int put_message(Summary *summary, uint32_t number)
{
    FileRecord *message = open_archived(summary->job, number);
    if (message == nullptr) return 0; /* gone: no line */
    summary->number = number;
    summary->date[0] = '\0';
    summary->job->sender[0] = '\0';
    summary->job->subject[0] = '\0';
    summary->job->flags &= ~static_cast<uint32_t>(JOB_SUBJECT_OVERFLOW);
    const int read = read_header(summary, message);
    close_archived(message);
    return read < 0 ? -1 : put_line(summary);
}

/* -- the range -- */

static int put_range(ReplyFile *reply, int first, int last)
{
    IndexRecord *index = reply->job->mailbox->index;
    const int64_t end = static_cast<int64_t>(record_count(index)) - 1;
    Summary summary = {reply, reply->job, 0, ""};
    int result = 0;
    /* Positions may come back from outside the archive. */
    for (int64_t at = first; result == 0 && at <= last; ++at)
        if (at >= 1 && at <= end) result = put_message(&summary, index[at].uid);
    return result;
}

int put_summary(ReplyFile *reply, const char *argument)
{
    static const FailText malformed(1, 223, "mlname=%s create_cmdrpy summcov_argstr fail[str=%s]");
    static const WriteTexts write = {"fputs",
                                     {1, 228, "mlname=%s create_cmdrpy fputs5 error %m [%s]"}};
    DeliveryJob *job = reply->job;
    char newest[32];
    if (*skip_space_tab(argument) == '\0') {
        snprintf_(newest, sizeof(newest), "last:%d", job->settings.summary_limit);
        argument = newest;
    }
    int first = 0, last = 0;
    if (summconv_argstr(argument, job->mailbox->index, &first, &last) < 0) {
        (void)log_failure(malformed, job->list_name, argument);
        return 1;
    }
    char sender[LINE_SIZE];
    strncpy_(sender, job->sender, sizeof(sender));
    const int result = put_range(reply, first, last);
    strncpy_(job->sender, sender, sizeof(job->sender));
    return result < 0 ? -1 : reply_end_step(reply, write);
}
