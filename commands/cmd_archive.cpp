/* The archive of archive commands: opening it, and walking it in batches. */
#include "commands/cmd_archive.h"

#include <string.h>

#include "archive/mbx.h"
#include "commands/cmd_args.h"
#include "store/file.h"
#include "store/str.h"

int OpenArchive::open(const FailText &fail)
{
    char path[PATH_SIZE];
    if (archive_path(path, job, "INBOX") == 0) job->mailbox = list_mbx_open(path, 1);
    return job->mailbox != nullptr ? 0 : log_failure(fail, job->list_name, path);
}

void OpenArchive::close()
{
    if (job->mailbox != nullptr) list_mbx_close(job->mailbox);
    job->mailbox = nullptr;
}

bool BatchWalk::is_wanted(uint32_t at) const
{
    return is_in_set(job, bitmap, size, job->mailbox->index[at].uid);
}

bool BatchWalk::next(char *list_out)
{
    IndexRecord *index = job->mailbox->index;
    const uint32_t end = record_count(index);
    const int64_t limit = static_cast<int64_t>(job->settings.size_limit) * 1024;
    while (position < end && !is_wanted(position))
        ++position;
    if (position >= end) return false;

    size_t used =
        static_cast<size_t>(snprintf_(list_out, NUMBER_LIST_SIZE, "%u", index[position].uid));
    int64_t total = index[position].size;
    for (++position; position < end; ++position) {
        if (!is_wanted(position)) continue;
        char number[16];
        const size_t length =
            static_cast<size_t>(snprintf_(number, sizeof(number), " %u", index[position].uid));
        total += index[position].size;
        if ((limit > 0 && total > limit) || used + length > NUMBER_LIST_SIZE - 1) break;
        memcpy(list_out + used, number, length + 1);
        used += length;
    }
    return true;
}
