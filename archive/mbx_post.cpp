#include "archive/mbx_post.h"

#include "archive/mbx.h"
#include "module/guards.h"
#include "module/host_mem.h"

/* One posting under way. */
struct Posting {
    const char *path;
    const PostedFile *file;
    int32_t keep;
    MailboxSummary summary; /* from before the append: that is what is printed */
    AppendBatch batch = {};
    Removal *removals = nullptr;
    uint32_t removed = 0;
    ~Posting()
    {
        host_release(batch.index);
        host_release(removals);
    }
};

/* Flags the messages that are one too many now.  Counted are the records from before the append:
   the header's stands for the new message.  True when there are any. */
static bool flag_surplus(const Posting *post)
{
    const int64_t records = int64_t{post->summary.messages} + 1;
    if (records <= 1 || records <= post->keep) return false;
    int64_t surplus = records - post->keep;
    if (surplus > records - 1) surplus = records - 1;
    for (int64_t i = 1; i <= surplus; ++i)
        post->batch.index[i].flags |= MESSAGE_DELETED;
    return true;
}

/* Removes those, and with them whatever else is flagged \Deleted by now.  0 or -1. */
static int trim(Posting *post)
{
    if (!flag_surplus(post)) return 0;
    post->removed = count_marked(post->batch.index, MESSAGE_DELETED);
    post->removals = static_cast<Removal *>(host_allocate(post->removed * sizeof(Removal)));
    if (post->removals == nullptr) return -1;
    remove_marked(post->batch.index, MESSAGE_DELETED, post->removals);
    return 0;
}

static int append_and_trim(Posting *post, IndexTransaction *transaction)
{
    const IndexRecord message = {0, 0, post->file->header_size, post->file->size};
    struct timespec changed;
    post->batch.capacity = record_count(post->batch.index) + 1; /* the spare record */
    if (append_to_block(&post->batch, post->path, post->file->path, &message, 0) < 0) return -1;
    if (sync_message_directory(post->path) < 0 || trim(post) < 0) return -1;
    if (transaction->write_clear_of_marks(post->batch.index) < 0) return -1;
    return transaction->end(&changed);
}

static PostResult post_under_lock(Posting *post)
{
    IndexTransaction transaction;
    post->batch.index = load_view(&transaction, post->path, &post->summary);
    if (post->batch.index == nullptr) return PostResult::not_opened;
    return append_and_trim(post, &transaction) == 0 ? PostResult::posted : PostResult::not_appended;
}

PostResult mbx_post(const char *path, const PostedFile *file, int32_t keep, uint32_t *uid_out)
{
    Posting post = {path, file, keep, {}};
    const PostResult result = post_under_lock(&post);
    KeepErrno keep_errno;
    if (result == PostResult::not_opened) {
        (void)list_mbx_rebuild(path); /* logs; the open has failed all the same */
        return result;
    }
    print_summary(&post.summary, 0);
    if (result != PostResult::posted) return result;
    unlink_messages(path, post.removals, post.removed);
    *uid_out = post.batch.last_uid;
    return result;
}
