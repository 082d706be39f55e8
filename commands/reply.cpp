/* create_cmdrpy(): the order of a reply's parts. */
#include "commands/reply.h"

#include "commands/cmd.h"
#include "commands/reply_file.h"

static int put_opening(ReplyFile *reply, int kind, const char *text, int variant)
{
    static const WriteTexts texts = {"fputs1",
                                     {1, 209, "mlname=%s create_cmdrpy fputs1 error %m [%s]"}};
    char block[COMPOSE_SIZE];
    build_opening(reply->job, kind, text, variant, block, sizeof(block));
    return reply_put(reply, block, texts) < 0 ? -1 : reply_end_step(reply, texts);
}

static int put_content(ReplyFile *reply, int kind, const char *text)
{
    switch (kind) {
    case COMMAND_HELP:
        return put_help(reply);
    case COMMAND_SUBSCRIBE:
        return put_welcome(reply);
    case COMMAND_MEMBER:
        return put_members(reply);
    case COMMAND_SUMMARY:
        return put_summary(reply, text);
    case COMMAND_GET:
    case COMMAND_PUSH:
        return put_messages(reply, text);
    case COMMAND_STAT:
        return put_status(reply);
    default:
        return 0;
    }
}

int create_cmdrpy(DeliveryJob *job, int kind, const char *text, int variant)
{
    static const FailText open_failed(1, 208,
                                      "mlname=%s create_cmdrpy can't open mailfile  %m [%s]");
    static const WriteTexts close_failed = {
        "fputs", {1, 221, "mlname=%s create_cmdrpy fputs error %m [%s]"}};
    ReplyFile reply(job);
    if (reply.open("cmdrpy", open_failed) < 0) return -1;
    if (kind == COMMAND_PUSH && variant == VARIANT_ERROR)
        return -1; /* nobody waits for an answer */
    if (put_opening(&reply, kind, text, variant) < 0) return -1;
    if (variant == VARIANT_NORMAL) {
        const int content = put_content(&reply, kind, text);
        if (content != 0) return content;
    }
    return reply.close(close_failed);
}
