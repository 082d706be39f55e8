/* From UIDs to sequence numbers. */
#include <limits.h>

#include "archive/mbx.h"

/* The first record whose UID is at or above uid; the record count when there is none. */
static uint32_t first_at_or_above(IndexRecord *index, uint32_t uid)
{
    uint32_t low = 1, high = record_count(index);
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (index[middle].uid < uid)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

int index_find_uid(IndexRecord *index, uint32_t uid)
{
    const uint32_t found = first_at_or_above(index, uid);
    if (found >= record_count(index) || index[found].uid != uid) return 0;
    return static_cast<int>(found);
}

int index_uid_bound(IndexRecord *index, uint32_t uid, int direction)
{
    const uint32_t count = record_count(index);
    if (count <= 1) return 0;
    /* KEPT: outside the UIDs in use the answer points inwards or nowhere, the wrong way round.
       Test: UidSearch.AnswersTheWrongWayRoundOutsideTheRange */
    if (uid < index[1].uid) return direction == 0 ? -1 : 1;
    const uint32_t found = first_at_or_above(index, uid);
    if (found >= count) return direction == 0 ? static_cast<int>(count - 1) : -1;
    if (index[found].uid == uid || direction == 0) return static_cast<int>(found);
    return static_cast<int>(found - 1);
}

int mlmbx_uid2seq(MailboxHandle *handle, uint32_t uid)
{
    if (handle == nullptr || handle->index == nullptr) return 0;
    return index_find_uid(handle->index, uid);
}

int mbxuidsearch(MailboxHandle *handle, uint32_t uid, int direction)
{
    if (handle == nullptr || handle->index == nullptr) return 0;
    return index_uid_bound(handle->index, uid, direction);
}

int mbxuidcheck(MailboxHandle *handle, uint32_t uid, int *sequence_out)
{
    *sequence_out = 0;
    if (handle == nullptr || handle->index == nullptr) return -1;
    const int found = index_find_uid(handle->index, uid);
    *sequence_out = found != 0 ? found : static_cast<int>(record_count(handle->index));
    if (found == 0) return -1;
    const uint32_t size = handle->index[found].size;
    return size > INT_MAX ? INT_MAX : static_cast<int>(size);
}
