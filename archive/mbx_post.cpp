#include "archive/mbx_post.h"

#include <string.h>

#include "archive/growing.h"
#include "archive/mbx.h"
#include "module/guards.h"
#include "module/host_mem.h"

/* One posting under way. */
struct Posting {
    const char *path;
    const PostedFile *file;
    int32_t keep;
    MailboxSummary summary;        /* from before the append: that is what is printed */
    IndexRecord *before = nullptr; /* the index as it was read */
    AppendBatch batch = {};        /* the index as it is to become */
    GrowingList<Removal> removals = {};
    ~Posting()
    {
        host_release(before);
        host_release(batch.index);
    }
};

/* Starts the new block as a copy of the old one, with room for the message.  0 or -1. */
static int copy_block(Posting *post)
{
    const uint32_t count = record_count(post->before);
    post->batch.capacity = count + 1;
    post->batch.index =
        static_cast<IndexRecord *>(host_allocate((count + size_t{1}) * sizeof(IndexRecord)));
    if (post->batch.index == nullptr) return -1;
    memcpy(post->batch.index, post->before, count * sizeof(IndexRecord));
    return 0;
}

/* How many of the oldest messages are too many now.  Counted are the records from before the
   append: the header's stands for the new message. */
static uint32_t surplus_of(const Posting *post)
{
    const int64_t records = int64_t{post->summary.messages} + 1;
    if (records <= 1 || records <= post->keep) return 0;
    const int64_t surplus = records - post->keep;
    return static_cast<uint32_t>(surplus > records - 1 ? records - 1 : surplus);
}

/* Removes those, and when there are any, whatever else is flagged \Deleted by now; the others go
   without marks of an open mailbox.  0 or -1. */
static int trim(Posting *post)
{
    IndexRecord *index = post->batch.index;
    const uint32_t surplus = surplus_of(post);
    const uint32_t deleted = surplus > 0 ? MESSAGE_DELETED : 0;
    uint32_t kept = 1;
    for (uint32_t i = 1; i < record_count(index); ++i) {
        IndexRecord record = index[i];
        if (i <= surplus || (record.flags & deleted) != 0) {
            if (!post->removals.add({kept, record.uid})) return -1;
            continue;
        }
        record.flags &= ~static_cast<uint32_t>(MESSAGE_EXPUNGE);
        index[kept++] = record;
    }
    record_count(index) = kept;
    return 0;
}

static int append_and_trim(Posting *post, IndexTransaction *transaction)
{
    const IndexRecord message = {0, 0, post->file->header_size, post->file->size};
    if (copy_block(post) < 0) return -1;
    if (append_to_block(&post->batch, post->path, post->file->path, &message, 0) < 0) return -1;
    if (sync_message_directory(post->path) < 0 || trim(post) < 0) return -1;
    if (transaction->replace(post->before, post->batch.index) < 0) return -1;
    return transaction->end(nullptr);
}

static PostResult post_under_lock(Posting *post, KeptIndex *index)
{
    IndexTransaction transaction;
    post->before = load_view(&transaction, post->path, &post->summary, index);
    if (post->before == nullptr) return PostResult::not_opened;
    return append_and_trim(post, &transaction) == 0 ? PostResult::posted : PostResult::not_appended;
}

PostResult mbx_post(const char *path, const PostedFile *file, int32_t keep, uint32_t *uid_out,
                    KeptIndex *index)
{
    Posting post = {path, file, keep, {}};
    const PostResult result = post_under_lock(&post, index);
    KeepErrno keep_errno;
    if (result == PostResult::not_opened) {
        (void)list_mbx_rebuild(path); /* logs; the open has failed all the same */
        return result;
    }
    print_summary(&post.summary, 0);
    if (result != PostResult::posted) return result;
    unlink_messages(path, post.removals.items(), static_cast<uint32_t>(post.removals.count()));
    *uid_out = post.batch.last_uid;
    return result;
}
