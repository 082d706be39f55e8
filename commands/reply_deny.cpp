/* The notice that tells a poster that a posting was refused. */
#include <errno.h>

#include "commands/reply.h"
#include "module/guards.h"
#include "module/sink.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/str.h"

#define NOTICE_BUFFER_SIZE 65536

/* One notice while it is written: closes its file on every path. */
struct Notice {
    DeliveryJob *job;
    char path[PATH_SIZE];
    FileRecord *file = nullptr;

    explicit Notice(DeliveryJob *of) : job(of) {}
    Notice(const Notice &) = delete;
    Notice &operator=(const Notice &) = delete;
    ~Notice()
    {
        KeepErrno keep;
        (void)f_close(file); /* on the good path finish() has closed it */
    }
};

static int write_failed(const Notice *notice, int msgno)
{
    err_printf("fputs error %d [%s]\n", errno, notice->path);
    trace_sys(&g_logh, 1, msgno, "mlname=%s create_mldeny fputs error %m [%s]",
              notice->job->list_name, notice->path);
    return -1;
}

static int put(Notice *notice, const char *text, int msgno)
{
    return Fputs(text, notice->file) < 0 ? write_failed(notice, msgno) : 0;
}

/* Ends a step: what it wrote is on its way, or fails with the step's own number. */
static int drain(Notice *notice, int msgno)
{
    return Fdrain(notice->file) < 0 ? write_failed(notice, msgno) : 0;
}

static int open_notice(Notice *notice)
{
    char name[32];
    snprintf_(name, sizeof(name), "msg/mldeny.%d", notice->job->thread_id);
    if (control_path(notice->path, notice->job, name) == 0)
        notice->file = f_open(notice->path, "w");
    if (notice->file == nullptr) {
        trace_sys(&g_logh, 1, 235, "mlname=%s create_mldeny can't open mailfile %m [%s]",
                  notice->job->list_name, notice->path);
        return -1;
    }
    (void)Fbuffer(notice->file, NOTICE_BUFFER_SIZE); /* without memory it writes directly */
    return 0;
}

static int put_head(Notice *notice)
{
    static void (*const builders[])(DeliveryJob *, char *, int) = {
        make_mldeny_header,
        make_cmdrpy_mimeheader,
        make_cmdrpy_mimetext,
    };
    for (const auto build : builders) {
        char block[LINE_SIZE];
        block[0] = '\0';
        build(notice->job, block, sizeof(block));
        if (put(notice, block, 236) < 0) return -1;
    }
    if (put(notice, "\r\nDistribution Denied:\r\n-\r\n", 236) < 0) return -1;
    return drain(notice, 236);
}

static int put_reason(Notice *notice, const char *reason)
{
    /* KEPT: the wording, and the blank before the line end.
       Test: Denial.TheNoticeForAStrangerIsByteExact */
    if (reason[0] == '\0') reason = "It is restrict mailing list rule. ";
    char text[LINE_SIZE];
    snprintf_(text, sizeof(text), "\r\n\t%s\r\n\r\n", reason);
    return put(notice, text, 237) < 0 ? -1 : drain(notice, 237);
}

static int copy_lines(Notice *notice, FileRecord *journal, const char *journal_path)
{
    char line[LINE_SIZE];
    while (Fgets(line, sizeof(line), journal) != nullptr)
        if (put(notice, line, 240) < 0) return -1;
    if (!Ferror(journal)) return drain(notice, 240);
    err_printf("fgets error %d [%s]\n", errno, notice->path);
    trace_sys(&g_logh, 1, 241, "mlname=%s create_mldeny fgets error %m [%s]",
              notice->job->list_name, journal_path);
    return -1;
}

static int put_refused_message(Notice *notice)
{
    char block[LINE_SIZE];
    block[0] = '\0';
    make_cmdrpy_mimemail(notice->job, block, sizeof(block));
    if (put(notice, block, 238) < 0 || drain(notice, 238) < 0) return -1;

    char name[32], path[PATH_SIZE];
    snprintf_(name, sizeof(name), "jnl/j.%d", notice->job->thread_id);
    FileRecord *journal = control_path(path, notice->job, name) == 0 ? f_open(path, "r") : nullptr;
    if (journal == nullptr) {
        trace_sys(&g_logh, 1, 239, "mlname=%s create_mldeny can't open information file %m [%s]",
                  notice->job->list_name, path);
        return -1;
    }
    const int copied = copy_lines(notice, journal, path);
    KeepErrno keep;
    (void)f_close(journal); /* only read */
    return copied;
}

static int finish(Notice *notice)
{
    char block[LINE_SIZE];
    block[0] = '\0';
    make_cmdrpy_mimeperiod(notice->job, block, sizeof(block));
    if (put(notice, block, 242) < 0 || drain(notice, 242) < 0) return -1;
    FileRecord *file = notice->file;
    notice->file = nullptr;
    return f_close(file) ? 0 : write_failed(notice, 242);
}

int create_mldeny(DeliveryJob *job, const char *reason)
{
    Notice notice(job);
    if (open_notice(&notice) < 0) return -1;
    if (put_head(&notice) < 0) return -1;
    if (put_reason(&notice, reason) < 0) return -1;
    if (put_refused_message(&notice) < 0) return -1;
    return finish(&notice);
}
