/* The archive of a list as a mailbox: store and index.

   Layout of a mailbox directory M:
     M/#mix       index, an array of 16-byte little-endian records, record 0 the header
     M/#msg/UID   one message each, verbatim
     M/#mix.new, .old, .new1 and .delnew, .delold, .delnew1: transaction files, absent at rest

   Thread rules.  Any number of threads may work on different handles, also of one mailbox; one
   handle is used by one thread at a time.  Every operation that touches the index takes an
   exclusive flock on M/#mix for its own length; between operations a handle holds no lock on the
   index (one exception: mlmbx_checknewmail2).  All IMAP text (RFC 3501 untagged responses) goes
   to the calling thread's sink (output.h).  Failures are logged once, where they happen, and
   leave the cause in errno. */
#ifndef MLIST_ARCHIVE_H
#define MLIST_ARCHIVE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct DeliveryJob;
struct MessageCache;

/* One record of the index.  Record 0 has the same words under other names: UIDNEXT, UIDVALIDITY,
   record count (header included), reserved. */
struct IndexRecord {
    uint32_t uid;
    uint32_t flags;
    uint32_t header_size; /* bytes up to and including the blank line; 0 when there is none */
    uint32_t size;        /* bytes of the message file */
};

/* Flag bits of a record. */
enum {
    MESSAGE_SEEN = 1,
    MESSAGE_ANSWERED = 2,
    MESSAGE_FLAGGED = 4,
    MESSAGE_DELETED = 8,
    MESSAGE_DRAFT = 16,
    MESSAGE_RECENT = 32,
    MESSAGE_MDNSENT = 64,
    MESSAGE_CHANGED = 0x400,  /* in a handle: flags not yet in the index */
    MESSAGE_EXPUNGE = 0x800,  /* to be removed by mlmbx_expunge2() */
    MESSAGE_VANISHED = 0x1000 /* in a handle: gone from the index, not yet announced */
};
#define MESSAGE_COMPARED 95u /* flags compared between handle and index: all but \Recent */

/* Mode bits of a handle. */
enum {
    MAILBOX_NO_WRITE_BACK = 1,
    MAILBOX_FORCE_CHECK = 2,
    MAILBOX_QUIET = 4,
    MAILBOX_RESYNC = 8,
    MAILBOX_SEARCH_ERROR = 16,
    MAILBOX_READ_ONLY = 64
};

/* Modes of an index transaction. */
enum { INDEX_PLAIN = 1, INDEX_KEEP_FD = 2, INDEX_KEEP_SECOND = 3, INDEX_DELETE = 4 };

/* An open mailbox.  The index is one block of record-count records (word 2 of record 0) plus one
   spare; a host may set flags through index[s].flags together with MESSAGE_CHANGED. */
struct MailboxHandle {
    char *path;
    int32_t sync_stamp; /* modification time of #mix at the last synchronisation */
    uint32_t mode;      /* MAILBOX_ */
    struct IndexRecord *index;
    struct MessageCache *cache;
    /* a private tail follows */
};

/* One index transaction. */
struct IndexHandle {
    char *path;
    int32_t fd;         /* #mix, locked */
    int32_t new_fd;     /* work copy, -1 none */
    int32_t second_fd;  /* second work copy, 0 none */
    int32_t error_code; /* 0, an errno value, or -1; not 0: the transaction is abandoned */
    /* a private tail follows */
};

/* "No index handle" where 0 will not do. */
#define NO_INDEX_HANDLE ((struct IndexHandle *)-1)

/* -- mailbox -- */

/* Opens a mailbox.  Prints FLAGS, EXISTS, RECENT, UIDVALIDITY, UIDNEXT, UNSEEN and
   PERMANENTFLAGS lines unless MAILBOX_QUIET.  Null on failure; a damaged index is rebuilt on the
   way, so that the next open may succeed. */
struct MailboxHandle *list_mbx_open(const char *path, int mode);

/* Writes pending flag changes back (unless MAILBOX_NO_WRITE_BACK) and releases the handle. */
void list_mbx_close(struct MailboxHandle *handle);

/* Synchronises handle and index and announces what changed; the second form announces no removal
   and marks the vanished instead.  When the second form meets another UIDVALIDITY it sets the
   handle's own to 0 and MAILBOX_RESYNC and leaves its transaction, and so the lock, open until
   the handle's next operation or close: close such a handle at once. */
void mlmbx_checknewmail(struct MailboxHandle *handle);
void mlmbx_checknewmail2(struct MailboxHandle *handle);

/* Removes messages flagged \Deleted, or marked MESSAGE_EXPUNGE; prints only when report is 1.
   The second form returns 0, or -1 when it failed or had nothing to work on. */
void mlmbx_expunge(struct MailboxHandle *handle, int report);
int mlmbx_expunge2(struct MailboxHandle *handle, int report);

/* Creates a mailbox (and, as mailboxes, missing parents).  1 created, 0 not (also when it
   exists). */
int mlmbx_create(const char *path);

/* Removes index, messages and directories as far as they go.  Always 1. */
int mlmbx_delete(const char *path);

/* Sequence number of a UID, 0 none. */
int mlmbx_uid2seq(struct MailboxHandle *handle, uint32_t uid);

/* Bound of a UID range: direction 0 the first at or above, else the last at or below.
   KEPT: below the first UID the answer is -1 or 1, above the last N or -1 (direction 0, else). */
int mbxuidsearch(struct MailboxHandle *handle, uint32_t uid, int direction);

/* Size of a message and its sequence number; -1 and the record count when it is not there. */
int mbxuidcheck(struct MailboxHandle *handle, uint32_t uid, int *sequence_out);

/* The list's next message number into the job.  0, or -1: logged, temporary failure. */
int mbxnewno(struct DeliveryJob *job);

/* Appends in a batch: the first call has index NO_INDEX_HANDLE and starts it, each call returns
   the batch's handle (NO_INDEX_HANDLE on failure: batch abandoned), a call with path null
   finishes it and always returns NO_INDEX_HANDLE: errno is 0 then when the batch is on disk, else
   it tells why nothing of it is.  move 0 links (or copies) the source file, else it is renamed.
   One batch a thread; the index stays locked for its length. */
struct IndexHandle *list_mbx_append(const char *path, struct IndexHandle *index, const char *source,
                                    uint32_t flags, uint32_t header_size, uint32_t size, int move);
struct IndexHandle *mbxappend(const char *path, struct IndexHandle *index, const char *source,
                              uint32_t flags, uint32_t header_size, uint32_t size, int move);

/* -- index transactions, literal form: #mix.new exists from open to close -- */

/* Begins a transaction on the mailbox's index, or on the locked descriptor fd (then the index
   name must stand in the path buffer).  NO_INDEX_HANDLE on failure. */
struct IndexHandle *mlmbx_openidx(const char *path, int fd, int mode);
struct IndexHandle *list_mbx_openidx(const char *path, int fd, int mode);

/* The index as one block (see MailboxHandle); null on failure.  Memory of the thread's
   allocator, released by the caller with mlist_release(). */
struct IndexRecord *mlmbx_readidx(struct IndexHandle *index);
int mlmbx_writeidx(struct IndexHandle *index, struct IndexRecord *records);           /* 0, -1 */
int list_mbx_writeidx_recent(struct IndexHandle *index, struct IndexRecord *records); /* 1, 0 */

/* Commits, or abandons after an error.  Modification time of the index, or -1; the handle is gone
   either way, and after -1 so is a descriptor that the caller gave. */
int32_t mlmbx_closeidx(struct IndexHandle *index, int mode);

/* Releases memory that the driver handed out (index blocks). */
void mlist_release(void *memory);

/* Makes #mix anew from the message files: flags lost, new UIDVALIDITY.  0 or -1. */
int list_mbx_rebuild(const char *path);
int list_mbx_mkidx(const char *message_directory, const char *name, struct IndexRecord *record);
void list_mbx_sortidx(struct IndexRecord *records, int count);
int list_mbx_idxcmp(const void *left, const void *right);

/* Names, built in the calling thread's path buffer (4,095 bytes), which they return. */
char *mlmbx_idxname(const char *path, int mode);
char *list_mbx_idxname(const char *path, int mode);
char *list_mbx_uidname(const char *path, uint32_t uid);

/* -- helpers -- */
int mlmbx_copybyfd(int from, int to); /* 1 copied, truncated and synced; 0 failed */
int32_t stat_mtime(const char *path); /* or -1 */
void sncpy(char *to, const char *from, size_t size);
int list_realsize(int size);                              /* rounded up to 1,024, at least 1,024 */
int size2cluster(int size);                               /* clusters of g_cluster_sz bytes */
int mllk_open(const char *path, int flags, mode_t mode);  /* locked descriptor, waits */
int mllks_open(const char *path, int flags, mode_t mode); /* does not wait */
int mllk_close(int fd);
int mb_tls_idx(void);
int mb_tls_wk(void);
int mb_gtls(void);
extern int g_cluster_sz; /* 0 (taken as 1,024) until the host sets it */

/* The FLAGS item of a record of an index block, and the release of a handle's parsed message. */
void list_mbx_fetch_flags2(struct IndexRecord *index, int record);
void list_mbx_freecache(struct MailboxHandle *handle);

#pragma GCC visibility pop
#ifdef __cplusplus
}
static_assert(sizeof(IndexRecord) == 16 && offsetof(IndexRecord, size) == 12);
static_assert(offsetof(MailboxHandle, sync_stamp) == 8 && offsetof(MailboxHandle, index) == 16);
static_assert(offsetof(IndexHandle, fd) == 8 && offsetof(IndexHandle, error_code) == 20);
#endif

#endif
