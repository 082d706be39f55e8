/* create_cmdrpy(): the order of a reply's parts. */
#include "commands/reply.h"

#include <errno.h>
#include <unistd.h>

#include "commands/cmd.h"
#include "commands/reply_file.h"
#include "module/guards.h"
#include "module/sink.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/str.h"

#define REPLY_BUFFER_SIZE 65536

/* -- the file -- */

ReplyFile::~ReplyFile()
{
    abandon_file(file);
}

int ReplyFile::open()
{
    static const FailText fail(1, 208, "mlname=%s create_cmdrpy can't open mailfile  %m [%s]");
    char name[32];
    snprintf_(name, sizeof(name), "msg/cmdrpy.%d", job->thread_id);
    if (control_path(path, job, name) == 0) file = f_open(path, "w");
    if (file == nullptr) return log_failure(fail, job->list_name, path);
    (void)Fbuffer(file, REPLY_BUFFER_SIZE); /* without memory it writes directly */
    return 0;
}

int ReplyFile::close()
{
    static const WriteTexts texts = {"fputs",
                                     {1, 221, "mlname=%s create_cmdrpy fputs error %m [%s]"}};
    FileRecord *closing = file;
    file = nullptr;
    return f_close(closing) ? 0 : reply_write_failed(this, texts);
}

int reply_write_failed(ReplyFile *reply, const WriteTexts &texts)
{
    err_printf("%s error %d [%s]\n", texts.stream, errno, reply->path);
    return log_failure(texts.log, reply->job->list_name, reply->path);
}

int reply_put(ReplyFile *reply, const char *text, const WriteTexts &texts)
{
    return Fputs(text, reply->file) < 0 ? reply_write_failed(reply, texts) : 0;
}

int reply_end_step(ReplyFile *reply, const WriteTexts &texts)
{
    return Fdrain(reply->file) < 0 ? reply_write_failed(reply, texts) : 0;
}

int reply_copy_lines(ReplyFile *reply, FileRecord *from, const WriteTexts &write,
                     const FailText &read)
{
    char line[LINE_SIZE];
    int result = 0;
    while (result == 0 && Fgets(line, sizeof(line), from) != nullptr)
        result = reply_put(reply, line, write);
    if (result == 0 && Ferror(from)) {
        err_printf("fgets error %d [%s]\n", errno, reply->path);
        result = log_failure(read, reply->job->list_name, reply->path);
    }
    close_archived(from);
    return result == 0 ? reply_end_step(reply, write) : -1;
}

/* -- the order of the parts -- */

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
    ReplyFile reply(job);
    if (reply.open() < 0) return -1;
    if (kind == COMMAND_PUSH && variant == VARIANT_ERROR)
        return -1; /* nobody waits for an answer */
    if (put_opening(&reply, kind, text, variant) < 0) return -1;
    if (variant == VARIANT_NORMAL) {
        const int content = put_content(&reply, kind, text);
        if (content != 0) return content;
    }
    return reply.close();
}
