/* The file of a mail that the module writes itself. */
#include "commands/reply_file.h"

#include <errno.h>

#include "module/sink.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/str.h"

#define REPLY_BUFFER_SIZE 65536

ReplyFile::~ReplyFile()
{
    abandon_file(file);
}

int ReplyFile::open(const char *kind, const FailText &fail)
{
    char name[32];
    snprintf_(name, sizeof(name), "msg/%s.%d", kind, job->thread_id);
    if (control_path(path, job, name) == 0) file = f_open(path, "w");
    if (file == nullptr) return log_failure(fail, job->list_name, path);
    (void)Fbuffer(file, REPLY_BUFFER_SIZE); /* without memory it writes directly */
    return 0;
}

int ReplyFile::close(const WriteTexts &texts)
{
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

int reply_copy_lines(ReplyFile *reply, FileRecord *from, const CopyTexts &texts,
                     const char *shown_path)
{
    char line[LINE_SIZE];
    while (Fgets(line, sizeof(line), from) != nullptr)
        if (reply_put(reply, line, texts.write) < 0) return -1;
    if (!Ferror(from)) return reply_end_step(reply, texts.write);
    err_printf("fgets error %d [%s]\n", errno, reply->path);
    return log_failure(texts.read, reply->job->list_name, shown_path);
}
