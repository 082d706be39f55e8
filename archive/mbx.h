/* Archive store, inside: records with their private tails, index blocks, index transactions.

   Lock rule: #mix is the only lock.  Whoever holds it may read and write the index, its side
   files and #msg; it is held for one IndexTransaction.  Nothing is printed while it is held. */
#ifndef ARCHIVE_MBX_H
#define ARCHIVE_MBX_H

#include <bit>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include "mlist/archive.h"
#include "module/job.h"
#include "module/tcb.h"

/* Index files are little-endian and are read and written as they lie in memory. */
static_assert(std::endian::native == std::endian::little);

#define MBX_NAME_SIZE (INDEX_NAME_SIZE + 1)

/* -- index blocks: record 0 under its own names -- */

inline uint32_t &uid_next(IndexRecord *index)
{
    return index[0].uid;
}
inline uint32_t &uid_validity(IndexRecord *index)
{
    return index[0].flags;
}
inline uint32_t &record_count(IndexRecord *index)
{
    return index[0].header_size;
}
inline uint32_t message_count(IndexRecord *index)
{
    return record_count(index) - 1;
}

/* Messages of the block that carry \Recent. */
uint32_t count_recent(IndexRecord *index);

/* More records than this are no index that we could number in an int. */
#define MBX_MAX_RECORDS 0x7FFFFFF0u

/* -- names (mbx_name.cpp): into MBX_NAME_SIZE bytes; 0, or -1 with ENAMETOOLONG -- */

[[nodiscard]] int index_name(char *out, const char *path);
/* The name of a message's file in "#msg", as long as the UID is. */
#define UID_TEXT_SIZE 11
void uid_text(char *out, uint32_t uid);

[[nodiscard]] int message_name(char *out, const char *path, uint32_t uid);
[[nodiscard]] int join_name(char *out, const char *directory, const char *name);
[[nodiscard]] int side_name(char *out, const char *name, const char *ending);

/* -- handles -- */

/* What list_mbx_open() really hands out. */
struct Mailbox : MailboxHandle {
    IndexHandle *open_transaction; /* left open by mlmbx_checknewmail2(), else null */
    struct timespec synchronised;  /* sync_stamp in full */
};

inline Mailbox *mailbox_of(MailboxHandle *handle)
{
    return static_cast<Mailbox *>(handle);
}

/* Ends, without committing, the transaction that a check left open. */
void end_open_transaction(Mailbox *box);

/* Puts a block in place of the handle's view, which is released with everything that refers to
   sequence numbers of it. */
void replace_view(Mailbox *box, IndexRecord *index);

/* The bytes of an index file, where they are at hand; else null. */
struct IndexImage {
    const void *bytes;
    size_t size;
};

/* An index block as its file has it. */
inline IndexImage image_of(IndexRecord *index)
{
    return {index, record_count(index) * sizeof(IndexRecord)};
}

/* What mlmbx_openidx() really hands out. */
struct OpenIndex : IndexHandle {
    bool lazy;         /* the work copy is made when something is written */
    bool renew_time;   /* lazy: what was written is what #mix holds */
    int32_t mode;      /* names of the side files */
    struct stat found; /* lazy: #mix as it was when the transaction began */
    IndexImage before; /* what #mix holds, until the commit */
    IndexImage after;  /* what the work copy holds */
    char name[MBX_NAME_SIZE];
};

inline OpenIndex *open_index_of(IndexHandle *index)
{
    return static_cast<OpenIndex *>(index);
}

/* Begins a transaction in the cheap form: nothing is copied until something is written.  The
   functions of the literal form work on it too.  Those of a posting have a KeptIndex: the first an
   empty one.  Null with errno on failure. */
[[nodiscard]] IndexHandle *begin_lazy_index(const char *path, KeptIndex *kept = nullptr);

/* Ends a transaction without committing; null is allowed.  errno is kept. */
void abandon_index(IndexHandle *index);

/* Makes the work copy of a transaction that has none yet, synced: with this content, or what #mix
   holds.  0 or -1. */
[[nodiscard]] int make_work_copy(IndexHandle *index, const IndexImage *content = nullptr);

/* Copies from offset 0 to the end over the other file and cuts that to length; the second form
   syncs it too.  The descriptors' positions stay.  0, or -1 with errno. */
[[nodiscard]] int copy_content(int from, int to);
[[nodiscard]] int copy_durably(int from, int to);

/* One operation's transaction in the cheap form; abandoned when it goes out of scope. */
class IndexTransaction
{
  public:
    IndexTransaction() = default;
    ~IndexTransaction() { abandon_index(handle_); }
    IndexTransaction(const IndexTransaction &) = delete;
    IndexTransaction &operator=(const IndexTransaction &) = delete;

    /* kept: of a posting; the index's file from its former transaction is taken over.  0, or -1
       with errno. */
    [[nodiscard]] int begin(const char *path, KeptIndex *kept = nullptr)
    {
        handle_ = begin_lazy_index(path, kept);
        return handle_ != nullptr ? 0 : -1;
    }
    [[nodiscard]] IndexRecord *read() { return mlmbx_readidx(handle_); } /* the caller's, or null */
    [[nodiscard]] int write(IndexRecord *records) { return mlmbx_writeidx(handle_, records); }
    [[nodiscard]] int write_clear_of_marks(IndexRecord *records) /* without MESSAGE_EXPUNGE */
    {
        return list_mbx_writeidx_recent(handle_, records) == 1 ? 0 : -1;
    }

    /* write() by somebody who changed something and has kept what he read: nothing is read back.
       Both blocks stay as they are until the end. */
    [[nodiscard]] int replace(IndexRecord *before, IndexRecord *after);

    /* Commits what was written.  0 with the index's modification time (nobody may want it: null),
       or -1 with errno. */
    [[nodiscard]] int end(struct timespec *changed_out);

    /* Ends without a commit and keeps the file for another begin(). */
    [[nodiscard]] KeptIndex keep_file();

    /* The open transaction, from now on the caller's to end. */
    IndexHandle *take()
    {
        IndexHandle *taken = handle_;
        handle_ = nullptr;
        return taken;
    }

  private:
    IndexHandle *handle_ = nullptr;
};

/* Notes the time of the index that the handle now agrees with. */
void set_sync_stamp(Mailbox *box, const struct timespec *changed);

/* -- opening (mbx_open.cpp) -- */

/* What opening a mailbox finds out and prints. */
struct MailboxSummary {
    uint32_t messages, recent, uid_validity, uid_next;
    uint32_t first_unseen; /* 0 none */
};

/* Begins the transaction and reads the index, which is to be in order.  The block, the caller's,
   or null: logged as a failed open; the caller rebuilds, when the transaction is gone. */
[[nodiscard]] IndexRecord *load_view(IndexTransaction *transaction, const char *path,
                                     MailboxSummary *summary_out, KeptIndex *kept = nullptr);

/* mbxnewno() that leaves the index's file open in the job. */
[[nodiscard]] int read_new_number(DeliveryJob *job);

/* Prints the lines of an open in this mode, unless it is a quiet one. */
void print_summary(const MailboxSummary *summary, uint32_t mode);

/* -- appending and removing within a transaction (mbx_append.cpp, mbx_expunge.cpp) -- */

/* Gives the message the next UID, puts its file in place and adds its record to the block.  0, or
   -1: logged, the block is of no more use. */
[[nodiscard]] int append_to_block(AppendBatch *batch, const char *path, const char *source,
                                  const IndexRecord *message, int move);

/* Makes the names of the message files durable; before the commit.  0 or -1. */
[[nodiscard]] int sync_message_directory(const char *path);

struct Removal {
    uint32_t sequence; /* at the moment of its removal */
    uint32_t uid;
};

/* Records with the flag. */
uint32_t count_marked(IndexRecord *index, uint32_t mark);

/* Closes the gaps of the marked records and says which they were. */
void remove_marked(IndexRecord *index, uint32_t mark, Removal *removals_out);

/* Unlinks the message files; after the commit: until then an index that refers to them may come
   back. */
void unlink_messages(const char *path, const Removal *removals, uint32_t count);

/* -- lookups on an index block (mbx_lookup.cpp); exported forms in mlist/archive.h -- */
int index_find_uid(IndexRecord *index, uint32_t uid);                 /* record, 0 none */
int index_uid_bound(IndexRecord *index, uint32_t uid, int direction); /* as mbxuidsearch() */

/* -- FLAGS item (mbx_flags.cpp) -- */
#define FLAGS_ITEM_SIZE 96

/* The item's text of a flag word into FLAGS_ITEM_SIZE bytes, which it returns. */
const char *flags_item(char *out, uint32_t flags);

#endif
