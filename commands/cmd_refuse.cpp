/* Refusals: inactive, denied, unknown and missing commands. */
#include "commands/cmd.h"
#include "commands/cmd_send.h"
#include "store/str.h"

static const ReplyTexts inactive_texts = {
    {1, 80, "mlname=%s create cmdrpy fail at inactivecmd"},
    {1, 81, "mlname=%s mailfile fail at inactivecmd"},
    82,
};
static const ReplyTexts denied_texts = {
    {1, 83, "mlname=%s create cmdrpy fail at denycmd"},
    {1, 84, "mlname=%s mailfile fail at deny cmd"},
    85,
};
static const ReplyTexts invalid_texts = {
    {1, 86, "mlname=%s create cmdrpy fail at invalidcmd"},
    {1, 87, "mlname=%s mailfile fail at invalidcmd"},
    88,
};
static const ReplyTexts nothing_texts = {
    {1, 89, "mlname=%s create cmdrpy fail at nothingcmd"},
    {1, 90, "mlname=%s mailfile fail at nothingcmd"},
    91,
};

static int refuse(DeliveryJob *job, int kind, const char *text, int variant,
                  const ReplyTexts &texts, const char *shown, const char *why)
{
    char done[LINE_SIZE + 32];
    snprintf_(done, sizeof(done), "%s\r\n%s", shown, why);
    return answer(job, kind, text, variant, texts, done);
}

int inactive_cmd(DeliveryJob *job, int number)
{
    return refuse(job, number, nullptr, VARIANT_INACTIVE, inactive_texts, command_word(number),
                  "Inactive Command");
}

int denied_cmd(DeliveryJob *job, int number)
{
    return refuse(job, number, nullptr, VARIANT_DENIED, denied_texts, command_word(number),
                  "Denied Command");
}

int invalid_cmd(DeliveryJob *job, const char *text)
{
    return refuse(job, REPLY_INVALID_COMMAND, text, VARIANT_ERROR, invalid_texts, text,
                  "Invalid Command");
}

int nothing_cmd(DeliveryJob *job)
{
    return refuse(job, REPLY_NO_COMMAND, nullptr, VARIANT_ERROR, nothing_texts, "(nothing)",
                  "Not Found");
}
