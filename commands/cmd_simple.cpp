/* Commands that only answer: help, member and stat; and on, off and digest, which set the sender's
   status.  Each family is one function over rows. */
#include "commands/cmd.h"
#include "commands/cmd_send.h"
#include "store/file.h"

/* -- answers -- */

struct SimpleCommand {
    int kind;
    ReplyTexts texts;
    const char *done;
};

static const SimpleCommand help_row = {
    COMMAND_HELP,
    {{1, 5, "mlname=%s create cmdrpy fail at help"}, {1, 6, "mlname=%s mailfile fail at help"}, 7},
    "help\r\nSucceeded",
};
static const SimpleCommand member_row = {
    COMMAND_MEMBER,
    {{1, 32, "mlname=%s create cmdrpy fail at member"},
     {1, 33, "mlname=%s mailfile failed at member"},
     34},
    "member\r\nSucceeded",
};
static const SimpleCommand stat_row = {
    COMMAND_STAT,
    {{1, 53, "mlname=%s create cmdrpy fail at stat"},
     {1, 54, "mlname=%s mailfile fail at stat"},
     55},
    "stat\r\nSucceeded",
};

static int run_simple(DeliveryJob *job, const SimpleCommand &row)
{
    return answer(job, row.kind, nullptr, VARIANT_NORMAL, row.texts, row.done);
}

int cmd_help(DeliveryJob *job)
{
    return run_simple(job, help_row);
}

int cmd_member(DeliveryJob *job)
{
    return run_simple(job, member_row);
}

int cmd_stat(DeliveryJob *job)
{
    return run_simple(job, stat_row);
}

/* -- status -- */

struct StatusCommand {
    int kind, status;
    FailText change;
    ReplyTexts failed, succeeded;
    const char *done_failed, *done_succeeded;
};

static const StatusCommand on_row = {
    COMMAND_ON,
    MEMBER_ON,
    {1, 35, "mlname=%s chg mlmbr error at on"},
    {{1, 36, "mlname=%s create cmdrpy fail -error(1)- at on"},
     {1, 38, "mlname=%s mailfile fail at on"},
     39},
    {{1, 37, "mlname=%s create cmdrpy fail -normal- at on"},
     {1, 38, "mlname=%s mailfile fail at on"},
     40},
    "on\r\nFailed",
    "on\r\nSucceeded",
};
static const StatusCommand off_row = {
    COMMAND_OFF,
    MEMBER_OFF,
    {1, 41, "mlname=%s chg mlmbr error at off"},
    {{1, 42, "mlname=%s create cmdrpy fail -error(1)- at off"},
     {1, 44, "mlname=%s mailfile fail at off"},
     45},
    {{1, 43, "mlname=%s create cmdrpy fail -normal- at off"},
     {1, 44, "mlname=%s mailfile fail at off"},
     46},
    "off\r\nFailed",
    "off\r\nSucceeded",
};
static const StatusCommand digest_row = {
    COMMAND_DIGEST,
    MEMBER_DIGEST,
    {1, 47, "mlname=%s chg mlmbr error at digest"},
    {{1, 48, "mlname=%s create cmdrpy fail -error(1)- at digest"},
     {1, 50, "mlname=%s mailfile fail at digest"},
     51},
    {{1, 49, "mlname=%s create cmdrpy fail -normal- at digest"},
     {1, 50, "mlname=%s mailfile fail at digest"},
     52},
    "digest\r\nFailed",
    "digest\r\nSucceeded",
};

/* A sender who is no member is told "Failed", and the command counts as done; after an error the
   delivery ends as well. */
static int run_status(DeliveryJob *job, const StatusCommand &row)
{
    const int changed = chg_mlmbr(job, job->sender, row.status);
    if (changed < 0) (void)log_failure(row.change, job->list_name);
    const bool succeeded = changed > 0;
    const int sent = answer(job, row.kind, nullptr, succeeded ? VARIANT_NORMAL : VARIANT_ERROR,
                            succeeded ? row.succeeded : row.failed,
                            succeeded ? row.done_succeeded : row.done_failed);
    return sent < 0 || changed < 0 ? -1 : 0;
}

int cmd_on(DeliveryJob *job)
{
    return run_status(job, on_row);
}

int cmd_off(DeliveryJob *job)
{
    return run_status(job, off_row);
}

int cmd_digest(DeliveryJob *job)
{
    return run_status(job, digest_row);
}
