/* "summary": a line for each message of a range. */
#include "commands/cmd.h"
#include "commands/cmd_archive.h"
#include "commands/cmd_args.h"
#include "commands/cmd_send.h"
#include "store/str.h"

static const FailText open_failed(1, 56, "mlname=%s cmd_summary():mbxopen failure[fn=%s]");
static const FailText create_failed(1, 57, "mlname=%s create cmdrpy fail at summary");
static const FailText send_failed(1, 58, "mlname=%s mailfile fail at summary");
static const ReplyTexts error_texts = {
    {1, 60, "mlname=%s create cmdrpy fail -error- at summary"},
    {1, 61, "mlname=%s mailfile fail at summary"},
    62,
};

static int answer_malformed(DeliveryJob *job, const char *text)
{
    char done[LINE_SIZE + 32];
    snprintf_(done, sizeof(done), "summary %s\r\nFailed", text);
    return answer(job, COMMAND_SUMMARY, text, VARIANT_ERROR, error_texts, done);
}

int cmd_summary(DeliveryJob *job, const char *text)
{
    char argument[LINE_SIZE];
    strncpy_(argument, text, sizeof(argument));
    (void)correct_argstr(argument);

    OpenArchive archive(job);
    if (archive.open(open_failed) < 0) return -1;
    const int created = create_cmdrpy(job, COMMAND_SUMMARY, argument, VARIANT_NORMAL);
    if (created < 0) return log_failure(create_failed, job->list_name);
    if (created > 0) return answer_malformed(job, argument);

    archive.close();
    if (send_reply(job, send_failed) < 0) return -1;
    log_command(job, 59, "summary\r\nSucceeded");
    return 0;
}
