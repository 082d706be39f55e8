/* What the archive commands share: the open archive, and batches of its messages. */
#ifndef COMMANDS_CMD_ARCHIVE_H
#define COMMANDS_CMD_ARCHIVE_H

#include <stddef.h>
#include <stdint.h>

#include "module/job.h"
#include "store/fail_text.h"

#define NUMBER_LIST_SIZE 4097 /* 4,096 characters and NUL */

/* The list's archive, open in the job for as long as the object lives. */
struct OpenArchive {
    explicit OpenArchive(DeliveryJob *delivery) : job(delivery) {}
    ~OpenArchive() { close(); }
    OpenArchive(const OpenArchive &) = delete;
    OpenArchive &operator=(const OpenArchive &) = delete;

    /* 0, or -1 with the text logged (its path is the mailbox). */
    [[nodiscard]] int open(const FailText &fail);
    void close();

    DeliveryJob *const job;
};

/* Walks a message set from its lowest number in batches: as many messages as fit into the list's
   "maxmsgsize=" (none: no limit) and into one number list.  The first of a batch always fits. */
struct BatchWalk {
    BatchWalk(DeliveryJob *delivery, const unsigned char *set, size_t set_size)
        : job(delivery), bitmap(set), size(set_size)
    {
    }

    /* The next batch's numbers, separated by blanks.  False when no message is left. */
    bool next(char *list_out);

  private:
    bool is_wanted(uint32_t position) const;

    DeliveryJob *job;
    const unsigned char *bitmap;
    size_t size;
    uint32_t position = 1; /* in the archive's index */
};

#endif
