/* Parts of replies that copy files: the roster, the sender's status, archived messages. */
#include <fcntl.h>
#include <stdlib.h>

#include "commands/reply_file.h"
#include "module/guards.h"
#include "module/os.h"
#include "store/file.h"
#include "store/str.h"

/* -- archived messages -- */

/* Not f_open() and f_close(): a message was synced when it was archived, and never changes. */
FileRecord *open_archived(const DeliveryJob *job, uint32_t number)
{
    char name[64], path[PATH_SIZE];
    snprintf_(name, sizeof(name), "INBOX/#msg/%u", number);
    if (archive_path(path, job, name) < 0) return nullptr;
    FdGuard guard(open_file(path, O_RDONLY, 0));
    FileRecord *record = guard.fd < 0 ? nullptr : Fopen(guard.fd);
    if (record != nullptr) (void)guard.take();
    return record;
}

void close_archived(FileRecord *record)
{
    const FdGuard guard(record->fd);
    Fclose(record);
}

int put_messages(ReplyFile *reply, const char *list)
{
    static const WriteTexts head = {"fputs",
                                    {1, 229, "mlname=%s create_cmdrpy fputs6 error %m [%s]"}};
    static const CopyTexts body = {
        {"fputs", {1, 230, "mlname=%s create_cmdrpy fputs7 error %m [%s]"}},
        {1, 231, "mlname=%s create_cmdrpy fgets3 error %m [%s]"},
    };
    static const WriteTexts end = {"fputs",
                                   {1, 232, "mlname=%s create_cmdrpy fputs8 error %m [%s]"}};
    char block[LINE_SIZE] = "";
    for (list = skip_space_tab(list); is_ascii_digit(static_cast<unsigned char>(*list));
         list = skip_space_tab(skipdigit(list))) {
        make_cmdrpy_mimemail(reply->job, block, sizeof(block));
        if (reply_put(reply, block, head) < 0 || reply_end_step(reply, head) < 0) return -1;
        FileRecord *message = open_archived(reply->job, atodw(list));
        if (message == nullptr) continue; /* its part stays empty */
        const int copied = reply_copy_lines(reply, message, body, reply->path);
        close_archived(message);
        if (copied < 0) return -1;
    }
    make_cmdrpy_mimeperiod(reply->job, block, sizeof(block));
    return reply_put(reply, block, end) < 0 ? -1 : reply_end_step(reply, end);
}

/* -- roster -- */

int put_members(ReplyFile *reply)
{
    static const FailText recover(1, 219, "mlname=%s create_cmdrpy recover error %m [%s]");
    static const FailText open(1, 220,
                               "mlname=%s create_cmdrpy can't open information file %m [%s]");
    static const CopyTexts copy = {
        {"fputs", {1, 221, "mlname=%s create_cmdrpy fputs error %m [%s]"}},
        {1, 222, "mlname=%s create_cmdrpy fgets1 error %m [%s]"},
    };
    char path[PATH_SIZE];
    if (control_path(path, reply->job, "member") < 0 || f_recover(path) < 0)
        return log_failure(recover, reply->job->list_name, path);
    FileRecord *roster = f_open(path, "r");
    if (roster == nullptr) return log_failure(open, reply->job->list_name, path);
    const int copied = reply_copy_lines(reply, roster, copy, reply->path);
    close_archived(roster);
    return copied;
}

int put_status(ReplyFile *reply)
{
    static const FailText look_up(1, 233,
                                  "mlname=%s create_cmdrpy can't access information file [%s]");
    static const WriteTexts write = {"fputs",
                                     {1, 234, "mlname=%s create_cmdrpy fputs9 error %m [%s]"}};
    char path[PATH_SIZE], line[LINE_SIZE];
    if (control_path(path, reply->job, "member") < 0 ||
        get_member(reply->job, reply->job->sender, line) < 0)
        return log_failure(look_up, reply->job->list_name, path);
    if (reply_put(reply, get_status(line), write) < 0 || reply_put(reply, "\r\n", write) < 0)
        return -1;
    return reply_end_step(reply, write);
}
