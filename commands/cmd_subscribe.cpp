/* Joining and leaving, at once or confirmed by an id.  The two commands mirror each other: what
   differs stands in their rows. */
#include <string.h>

#include "commands/cmd.h"
#include "commands/cmd_send.h"
#include "store/confirm.h"
#include "store/file.h"
#include "store/str.h"

struct MembershipCommand {
    int kind;
    bool wants_member; /* whether it changes anything for a sender who is a member */
    int (*change)(DeliveryJob *job, const char *address);
    FailText look_up, look_up_confirming, find_id, add_id, change_failed;
    ReplyTexts failed, succeeded, confirm;
    const char *done_failed, *done_succeeded, *done_confirm;
};

static const MembershipCommand subscribe_row = {
    COMMAND_SUBSCRIBE,
    false,
    add_mlmbr,
    {1, 8, "mlname=%s get_member fail at subscribe"},
    {1, 10, "mlname=%s get_member fail at subscribe confirm"},
    {1, 11, "mlname=%s get cnfrmdb error at subscribe"},
    {1, 12, "mlname=%s add cnfrmdb error at subscribe"},
    {1, 9, "mlname=%s add mlmbr error at subscribe"},
    {{1, 13, "mlname=%s create cmdrpy fail -error- at subscribe"},
     {1, 16, "mlname=%s mailfile fail at subscribe"},
     17},
    {{1, 14, "mlname=%s create cmdrpy fail -normal- subscribe"},
     {1, 16, "mlname=%s mailfile fail at subscribe"},
     18},
    {{1, 15, "mlname=%s create cmdrpy fail -confirm- at subscribe"},
     {1, 16, "mlname=%s mailfile fail at subscribe"},
     19},
    "subscribe\r\nFailed",
    "subscribe\r\nSucceeded",
    "subscribe\r\nConfirmId ...",
};
static const MembershipCommand unsubscribe_row = {
    COMMAND_UNSUBSCRIBE,
    true,
    del_mlmbr,
    {1, 20, "mlname=%s get_member fail at unsubscribe"},
    {1, 22, "mlname=%s get_member fail at unsubscribe"},
    {1, 23, "mlname=%s get cnfrmdb error at unsubscribe"},
    {1, 24, "mlname=%s add cnfrmdb error at unsubscribe"},
    {1, 21, "mlname=%s del mlmbr error at unsubscribe"},
    {{1, 25, "mlname=%s create cmdrpy fail -error- at unsubscribe"},
     {1, 28, "mlname=%s mailfile fail at unsubscribe"},
     29},
    {{1, 26, "mlname=%s create cmdrpy fail -normal- at unsubscribe"},
     {1, 28, "mlname=%s mailfile fail at unsubscribe"},
     30},
    {{1, 27, "mlname=%s create cmdrpy fail -confirm- at unsubscribe"},
     {1, 28, "mlname=%s mailfile fail at unsubscribe"},
     31},
    "unsubscribe\r\nFailed",
    "unsubscribe\r\nSucceeded",
    "unsubscribe\r\nConfirmId ...",
};

/* What a request came to. */
enum class Request { done, confirm, failed };

static Request fail(const DeliveryJob *job, const FailText &text)
{
    (void)log_failure(text, job->list_name);
    return Request::failed;
}

/* 1 the command would change something for the sender, 0 not, -1 failure (logged). */
static int is_concerned(DeliveryJob *job, const MembershipCommand &row, const FailText &text)
{
    char line[LINE_SIZE];
    if (get_member(job, job->sender, line) < 0) return log_failure(text, job->list_name);
    return (line[0] != '\0') == row.wants_member;
}

static Request change_at_once(DeliveryJob *job, const MembershipCommand &row)
{
    const int concerned = is_concerned(job, row, row.look_up);
    if (concerned < 0) return Request::failed;
    if (concerned && row.change(job, job->sender) < 0) return fail(job, row.change_failed);
    return Request::done;
}

/* With confirmation: the sender's pending id has to stand in the argument.  id_out receives the id
   to ask for. */
static Request change_confirmed(DeliveryJob *job, const MembershipCommand &row, const char *text,
                                char *id_out)
{
    const int concerned = is_concerned(job, row, row.look_up_confirming);
    if (concerned < 0) return Request::failed;
    if (!concerned) return Request::done;

    const int pending = get_cnfrmdb(job, job->sender, id_out);
    if (pending < 0) return fail(job, row.find_id);
    if (pending == 0) {
        if (add_cnfrmdb(job, job->sender, mkcnfrm(id_out)) < 0) return fail(job, row.add_id);
        return Request::confirm;
    }
    if (strncmp(skip_space_tab(text), id_out, strlen(id_out)) != 0) return Request::confirm;
    return change_at_once(job, row);
}

static int run_membership(DeliveryJob *job, const MembershipCommand &row, const char *text)
{
    char id[CONFIRM_ID_SIZE];
    const Request request = job->settings.confirmation != 0 ? change_confirmed(job, row, text, id)
                                                            : change_at_once(job, row);
    switch (request) {
    case Request::confirm:
        return answer(job, row.kind, id, VARIANT_CONFIRM, row.confirm, row.done_confirm);
    case Request::done:
        return answer(job, row.kind, nullptr, VARIANT_NORMAL, row.succeeded, row.done_succeeded);
    case Request::failed:
        break;
    }
    /* The sender is told, and the delivery ends all the same. */
    (void)answer(job, row.kind, nullptr, VARIANT_ERROR, row.failed, row.done_failed);
    return -1;
}

int cmd_subscribe(DeliveryJob *job, const char *text)
{
    return run_membership(job, subscribe_row, text);
}

int cmd_unsubscribe(DeliveryJob *job, const char *text)
{
    return run_membership(job, unsubscribe_row, text);
}
