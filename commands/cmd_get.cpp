/* "get": archived messages, in as many mails as their sizes ask for. */
#include "commands/cmd.h"
#include "commands/cmd_archive.h"
#include "commands/cmd_args.h"
#include "commands/cmd_send.h"
#include "module/host_mem.h"
#include "store/str.h"

static const FailText open_failed(1, 63, "mlname=%s cmd_get():mbxopen failure[fn=%s]");
static const FailText conv_failed(1, 64, "mlname=%s conv_argstr fail at get");
static const ReplyTexts normal_texts = {
    {1, 65, "mlname=%s create cmdrpy fail -normal- at get"},
    {1, 66, "mlname=%s mailfile fail at get"},
    67,
};
static const ReplyTexts error_texts = {
    {1, 68, "mlname=%s create cmdrpy fail -error- at get"},
    {1, 69, "mlname=%s mailfile fail at get"},
    70,
};

static int send_batch(DeliveryJob *job, const char *list)
{
    char shown[LINE_SIZE], done[LINE_SIZE + 32];
    snprintf_(done, sizeof(done), "get %s\r\nSucceeded", short_argstr(list, shown, sizeof(shown)));
    return answer(job, COMMAND_GET, list, VARIANT_NORMAL, normal_texts, done);
}

static int answer_nothing_there(DeliveryJob *job, const char *text)
{
    char done[LINE_SIZE + 32];
    snprintf_(done, sizeof(done), "get %s\r\nFailed", text);
    return answer(job, COMMAND_GET, text, VARIANT_ERROR, error_texts, done);
}

int cmd_get(DeliveryJob *job, const char *text)
{
    OpenArchive archive(job);
    if (archive.open(open_failed) < 0) return -1;

    char argument[LINE_SIZE], range[LINE_SIZE];
    strncpy_(argument, text, sizeof(argument));
    (void)correct_argstr(argument);
    unsigned char *set = nullptr;
    size_t size = 0;
    const char *numbers = expand_argstr(job->mailbox->index, argument, range, sizeof(range));
    if (conv_argstr(job, numbers, &set, &size) < 0) return log_failure(conv_failed, job->list_name);
    const HostPtr<unsigned char> owner(set);

    BatchWalk walk(job, set, size);
    char list[NUMBER_LIST_SIZE];
    if (!walk.next(list)) return answer_nothing_there(job, argument);
    do {
        if (send_batch(job, list) < 0) return -1;
    } while (walk.next(list));
    return 0;
}
