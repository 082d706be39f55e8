/* A posting's way into the archive, in one transaction. */
#ifndef ARCHIVE_MBX_POST_H
#define ARCHIVE_MBX_POST_H

#include <stdint.h>

#include "module/job.h"

struct PostedFile {
    const char *path; /* linked into the archive (or copied): do not write to it afterwards */
    uint32_t header_size, size;
};

enum class PostResult {
    posted,
    not_opened,  /* logged; the index has been rebuilt, if possible, as after a failed open */
    not_appended /* errno tells why; logged where the message file was at fault */
};

/* Appends the file and removes what the list does not keep: does, prints and logs what opening the
   mailbox (mode 0), appending a batch of one, marking all but the newest `keep` messages deleted,
   expunging in silence and closing do one after another, with one commit instead of two.  keep is
   not 0; below 0 only the posting stays.  uid_out: the posting's UID, when posted.  index: the
   index's file, if it is open already; closed by this. */
[[nodiscard]] PostResult mbx_post(const char *path, const PostedFile *file, int32_t keep,
                                  uint32_t *uid_out, KeptIndex *index = nullptr);

#endif
