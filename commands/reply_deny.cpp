/* The notice that tells a poster that a posting was refused. */
#include "commands/reply_file.h"
#include "module/guards.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/str.h"

/* Every write of the notice fails with the same text, under its step's number. */
#define FPUTS_FAILED "mlname=%s create_mldeny fputs error %m [%s]"

static int put_head(ReplyFile *notice)
{
    static const WriteTexts texts = {"fputs", {1, 236, FPUTS_FAILED}};
    static void (*const builders[])(DeliveryJob *, char *, int) = {
        make_mldeny_header,
        make_cmdrpy_mimeheader,
        make_cmdrpy_mimetext,
    };
    for (const auto build : builders) {
        char block[LINE_SIZE] = "";
        build(notice->job, block, sizeof(block));
        if (reply_put(notice, block, texts) < 0) return -1;
    }
    if (reply_put(notice, "\r\nDistribution Denied:\r\n-\r\n", texts) < 0) return -1;
    return reply_end_step(notice, texts);
}

static int put_reason(ReplyFile *notice, const char *reason)
{
    static const WriteTexts texts = {"fputs", {1, 237, FPUTS_FAILED}};
    /* KEPT: the wording, and the blank before the line end.
       Test: Denial.TheNoticeForAStrangerIsByteExact */
    if (reason[0] == '\0') reason = "It is restrict mailing list rule. ";
    char text[LINE_SIZE];
    snprintf_(text, sizeof(text), "\r\n\t%s\r\n\r\n", reason);
    return reply_put(notice, text, texts) < 0 ? -1 : reply_end_step(notice, texts);
}

static int put_part_head(ReplyFile *notice)
{
    static const WriteTexts texts = {"fputs", {1, 238, FPUTS_FAILED}};
    char block[LINE_SIZE] = "";
    make_cmdrpy_mimemail(notice->job, block, sizeof(block));
    return reply_put(notice, block, texts) < 0 ? -1 : reply_end_step(notice, texts);
}

static int put_refused_message(ReplyFile *notice)
{
    static const FailText open_failed(
        1, 239, "mlname=%s create_mldeny can't open information file %m [%s]");
    static const CopyTexts copy = {
        {"fputs", {1, 240, FPUTS_FAILED}},
        {1, 241, "mlname=%s create_mldeny fgets error %m [%s]"},
    };
    const DeliveryJob *job = notice->job;
    char name[32], path[PATH_SIZE];
    snprintf_(name, sizeof(name), "jnl/j.%d", job->thread_id);
    FileRecord *journal = control_path(path, job, name) == 0 ? f_open(path, "r") : nullptr;
    if (journal == nullptr) return log_failure(open_failed, job->list_name, path);
    const int copied = reply_copy_lines(notice, journal, copy, path);
    abandon_file(journal);
    return copied;
}

static int finish(ReplyFile *notice)
{
    static const WriteTexts texts = {"fputs", {1, 242, FPUTS_FAILED}};
    char block[LINE_SIZE] = "";
    make_cmdrpy_mimeperiod(notice->job, block, sizeof(block));
    if (reply_put(notice, block, texts) < 0 || reply_end_step(notice, texts) < 0) return -1;
    return notice->close(texts);
}

int create_mldeny(DeliveryJob *job, const char *reason)
{
    static const FailText open_failed(1, 235,
                                      "mlname=%s create_mldeny can't open mailfile %m [%s]");
    ReplyFile notice(job);
    if (notice.open("mldeny", open_failed) < 0) return -1;
    if (put_head(&notice) < 0 || put_reason(&notice, reason) < 0) return -1;
    if (put_part_head(&notice) < 0 || put_refused_message(&notice) < 0) return -1;
    return finish(&notice);
}
