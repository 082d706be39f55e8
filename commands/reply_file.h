/* One mail of the module's own while it is written, and the parts of a reply. */
#ifndef COMMANDS_REPLY_FILE_H
#define COMMANDS_REPLY_FILE_H

#include "commands/reply.h"
#include "module/job.h"
#include "store/fail_text.h"
#include "store/ntio.h"

#define COMPOSE_SIZE 16384 /* header, MIME lines and opening block together */

/* How a failed write is reported: on the error stream under its own name, then in the log. */
struct WriteTexts {
    const char *stream; /* "fputs1", "fputs" and so on */
    FailText log;       /* path: the reply file */
};

/* The file, closed on every path. */
struct ReplyFile {
    explicit ReplyFile(DeliveryJob *delivery) : job(delivery) {}
    ~ReplyFile();
    ReplyFile(const ReplyFile &) = delete;
    ReplyFile &operator=(const ReplyFile &) = delete;

    /* Creates "msg/KIND.TID"; the text takes its path.  0 or -1, logged. */
    [[nodiscard]] int open(const char *kind, const FailText &fail);

    /* What was collected is written and synced.  0 or -1, reported. */
    [[nodiscard]] int close(const WriteTexts &texts);

    DeliveryJob *const job;
    char path[PATH_SIZE] = "";
    FileRecord *file = nullptr;
};

/* Writes a text; collected until the step ends.  0 or -1. */
[[nodiscard]] int reply_put(ReplyFile *reply, const char *text, const WriteTexts &texts);

/* Ends a step: what it wrote is on its way, or fails with the step's own number.  0 or -1. */
[[nodiscard]] int reply_end_step(ReplyFile *reply, const WriteTexts &texts);

/* A failed write, reported; always -1. */
int reply_write_failed(ReplyFile *reply, const WriteTexts &texts);

/* How copying lines is reported. */
struct CopyTexts {
    WriteTexts write;
    FailText read;
};

/* Copies a file's lines as Fgets() hands them out, and ends the step.  0 or -1, reported; a failed
   read is logged with shown_path. */
[[nodiscard]] int reply_copy_lines(ReplyFile *reply, FileRecord *from, const CopyTexts &texts,
                                   const char *shown_path);

/* Opens an archived message for reading lines; null when it cannot be opened. */
FileRecord *open_archived(const DeliveryJob *job, uint32_t number);
void close_archived(FileRecord *record);

/* -- parts (each a file of its own); 0, or -1 (logged), or as said -- */
void build_opening(DeliveryJob *job, int kind, const char *text, int variant, char *out,
                   size_t size);
int put_welcome(ReplyFile *reply);
int put_help(ReplyFile *reply);
int put_members(ReplyFile *reply);
int put_status(ReplyFile *reply);
int put_messages(ReplyFile *reply, const char *list);
int put_summary(ReplyFile *reply, const char *argument); /* 1: malformed argument */

#endif
