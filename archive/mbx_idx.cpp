/* Index transactions: begin with recovery, end with commit or not at all.

   Side files of #mix (in transactions of mode 4 they end in .delnew, .delold, .delnew1):

   .new   .old   what happened                               what the next transaction does
   -      -      at rest                                     nothing
   yes    -      died before the commit, or at its very end  removes .new; #mix is whole
   yes    yes    died while #mix was being overwritten       copies .new over #mix, removes both
   -      yes    died while it made the work copy            removes .old; #mix is whole

   The order of a commit makes the table true: .new is synced, then .old is written and synced,
   then the directory is synced (the names are what recovery goes by), then #mix is overwritten
   and synced, then .old goes and then .new.  So #mix is the old index or the new one, whole, once
   the next transaction has begun.

   The removals at the end are not synced: the machine may lose power, forget them and remember
   some name of the next transaction.  Where a .old of the former one stands, any .new counts.  So
   a work copy is written under the name .old, which means nothing alone, and renamed when its
   bytes are on the disk: there is no .new that is not whole, where it has its name the .old of
   before is gone, and #mix holds what the former transaction wrote until the directory is synced.

   Two forms share this file.  The literal form, for hosts, makes the work copy at the beginning
   and always commits.  The cheap form, for the module's own operations, makes it when something
   is written: a transaction that only reads changes no file, and one that writes what is there
   already renews the modification time of #mix and nothing else. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>

#include "archive/mbx.h"
#include "archive/unix_lk.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"

struct SideEndings {
    const char *work, *backup, *second;
};

static const SideEndings &endings_of(int mode)
{
    static constexpr SideEndings plain = {".new", ".old", ".new1"};
    static constexpr SideEndings deleting = {".delnew", ".delold", ".delnew1"};
    return mode == INDEX_DELETE ? deleting : plain;
}

/* Modes in which the caller's descriptor outlives the transaction. */
static bool keeps_descriptor(int mode)
{
    return mode == INDEX_KEEP_FD || mode == INDEX_KEEP_SECOND || mode == INDEX_DELETE;
}

static int open_side_file(const OpenIndex *index, const char *ending, int flags)
{
    char name[MBX_NAME_SIZE];
    if (side_name(name, index->name, ending) < 0) return -1;
    return open_waiting(name, flags, 0660);
}

/* 1 the file exists, 0 it does not, -1 nobody can tell: then nothing may be concluded from it. */
static int has_side_file(const OpenIndex *index, const char *ending)
{
    char name[MBX_NAME_SIZE];
    struct stat status;
    if (side_name(name, index->name, ending) < 0) return -1;
    if (os->stat(name, &status) == 0) return 1;
    return errno == ENOENT ? 0 : -1;
}

static int remove_side_file(const OpenIndex *index, const char *ending)
{
    char name[MBX_NAME_SIZE];
    if (side_name(name, index->name, ending) < 0) return -1;
    return os->unlink(name);
}

/* -- the way out -- */

static void close_copies(OpenIndex *index)
{
    if (index->new_fd >= 0) (void)os->close(index->new_fd); /* synced, or of no use any more */
    if (index->second_fd > 0) (void)os->close(index->second_fd);
    index->new_fd = -1;
    index->second_fd = 0;
}

static void close_index_file(OpenIndex *index)
{
    if (index->fd < 0) return;
    (void)mllk_close(index->fd); /* what was written to it has been synced */
    index->fd = -1;
}

/* Closes and releases everything; errno is kept. */
static void discard_index(OpenIndex *index)
{
    KeepErrno keep;
    close_copies(index);
    close_index_file(index);
    host_release(index->path);
    host_release(index);
}

void abandon_index(IndexHandle *handle)
{
    if (handle == nullptr) return;
    KeepErrno keep;
    OpenIndex *index = open_index_of(handle);
    if (index->lazy && index->new_fd >= 0)
        (void)remove_side_file(index, endings_of(index->mode).work); /* else the next one does */
    discard_index(index);
}

/* -- begin -- */

static OpenIndex *new_index(const char *path, int mode, bool lazy)
{
    OpenIndex *index = static_cast<OpenIndex *>(host_allocate(sizeof(OpenIndex)));
    if (index == nullptr) return nullptr;
    memset(static_cast<void *>(index), 0, sizeof(*index));
    index->fd = -1;
    index->new_fd = -1;
    index->mode = mode;
    index->lazy = lazy;
    index->path = host_copy_text(path);
    if (index->path != nullptr) return index;
    discard_index(index);
    return nullptr;
}

/* Makes an image the whole of a file that had former_size bytes. */
static int put_image(int fd, const IndexImage &image, off_t former_size)
{
    const off_t size = static_cast<off_t>(image.size);
    if (pwrite_all(fd, image.bytes, image.size, 0) < 0) return -1;
    if (former_size > size && os->ftruncate(fd, size) < 0) return -1;
    return os->fsync(fd);
}

int make_work_copy(IndexHandle *handle, const IndexImage *content)
{
    OpenIndex *index = open_index_of(handle);
    const SideEndings &endings = endings_of(index->mode);
    char unnamed[MBX_NAME_SIZE], name[MBX_NAME_SIZE];
    if (side_name(unnamed, index->name, endings.backup) < 0 ||
        side_name(name, index->name, endings.work) < 0)
        return -1;
    FdGuard copy(open_waiting(unnamed, O_RDWR | O_CREAT | O_TRUNC, 0660));
    if (copy.fd < 0) return -1;
    const int filled =
        content != nullptr ? put_image(copy.fd, *content, 0) : copy_durably(index->fd, copy.fd);
    if (filled == 0 && os->rename(unnamed, name) == 0) {
        index->new_fd = copy.take();
        return 0;
    }
    KeepErrno keep;
    (void)os->unlink(unnamed); /* on a full disk its room is needed; else the next one removes it */
    return -1;
}

/* A commit was cut short after its backup: finish it. */
static int roll_forward(OpenIndex *index)
{
    const SideEndings &endings = endings_of(index->mode);
    FdGuard work(open_side_file(index, endings.work, O_RDWR));
    if (work.fd < 0 || copy_durably(work.fd, index->fd) < 0) return -1;
    if (remove_side_file(index, endings.backup) < 0) return -1;
    if (remove_side_file(index, endings.work) < 0) return -1;
    return os->fstat(index->fd, &index->found) < 0 ? -1 : 1;
}

/* Makes #mix whole by the table above.  0, 1 when a commit had to be finished, or -1. */
static int recover_index(OpenIndex *index)
{
    const SideEndings &endings = endings_of(index->mode);
    const int has_work = has_side_file(index, endings.work);
    const int has_backup = has_side_file(index, endings.backup);
    if (has_work < 0 || has_backup < 0) return -1;
    if (has_work && has_backup) return roll_forward(index);
    if (has_work && remove_side_file(index, endings.work) < 0) return -1;
    if (has_backup && remove_side_file(index, endings.backup) < 0) return -1;
    return 0;
}

/* The same with one call less, for a posting.  Its second transaction does not even remove a lone
   .old: the first one has, and if another has come its own work copy overwrites it. */
static int recover_for_posting(OpenIndex *index, bool again)
{
    const SideEndings &endings = endings_of(index->mode);
    if (has_side_file(index, endings.work) != 0) return recover_index(index);
    if (again || remove_side_file(index, endings.backup) == 0) return 0;
    return errno == ENOENT ? 0 : -1;
}

static int begin_in_cheap_form(OpenIndex *index, KeptIndex *kept)
{
    if (index_name(index->name, index->path) < 0) return -1;
    const bool again = kept != nullptr && kept->fd > 0;
    index->fd = lock_index_file(index->name, &index->found, kept);
    if (index->fd < 0) return -1;
    const int recovered =
        kept != nullptr ? recover_for_posting(index, again) : recover_index(index);
    return recovered < 0 ? -1 : 0;
}

IndexHandle *begin_lazy_index(const char *path, KeptIndex *kept)
{
    OpenIndex *index = new_index(path, INDEX_PLAIN, true);
    if (index == nullptr) return nullptr;
    if (begin_in_cheap_form(index, kept) == 0) return index;
    discard_index(index);
    return nullptr;
}

static int begin_in_literal_form(OpenIndex *index, int fd)
{
    const char *name = mlmbx_idxname(index->path, fd < 0 ? 1 : 0);
    if (name[0] == '\0') return -1;
    sncpy(index->name, name, sizeof(index->name));
    index->fd = fd;
    if (fd < 0)
        index->fd = lock_index_file(index->name);
    else
        note_held_index(fd);
    const int recovered = index->fd < 0 ? -1 : recover_index(index);
    if (recovered < 0 || make_work_copy(index) < 0) return -1;
    /* KEPT: there is no second copy behind a commit that was finished.
       Test: IndexTransaction.BehindAFinishedCommitHasNoSecondCopy */
    if (fd < 0 || recovered == 1) return 0;
    const int second =
        open_side_file(index, endings_of(index->mode).second, O_RDWR | O_CREAT | O_TRUNC);
    if (second < 0) return -1;
    index->second_fd = second;
    return 0;
}

IndexHandle *mlmbx_openidx(const char *path, int fd, int mode)
{
    OpenIndex *index = new_index(path, mode, false);
    if (index == nullptr) return NO_INDEX_HANDLE;
    if (begin_in_literal_form(index, fd) == 0) return index;
    if (fd >= 0) { /* the caller's, which it keeps when nothing has begun */
        forget_held_index(fd);
        index->fd = -1;
    }
    discard_index(index);
    return NO_INDEX_HANDLE;
}

IndexHandle *list_mbx_openidx(const char *path, int fd, int mode)
{
    return mlmbx_openidx(path, fd, mode);
}

/* -- end -- */

static int make_backup(OpenIndex *index)
{
    FdGuard backup(
        open_side_file(index, endings_of(index->mode).backup, O_RDWR | O_CREAT | O_TRUNC));
    if (backup.fd < 0) return -1;
    const int made = index->before.bytes != nullptr ? put_image(backup.fd, index->before, 0)
                                                    : copy_durably(index->fd, backup.fd);
    return made < 0 ? -1 : os->close(backup.take());
}

static int overwrite_index(OpenIndex *index)
{
    return index->after.bytes != nullptr ? put_image(index->fd, index->after, index->found.st_size)
                                         : copy_durably(index->new_fd, index->fd);
}

/* #mix is the old index, whole: without the backup the work copy means nothing. */
static void undo_backup(OpenIndex *index)
{
    KeepErrno keep;
    const SideEndings &endings = endings_of(index->mode);
    (void)remove_side_file(index, endings.backup); /* first: alone it is harmless as well */
    (void)remove_side_file(index, endings.work);
}

/* Overwriting failed half way, as on a full disk.  The old index goes back into the room that it
   had: what is reported as failed has not happened, and readers find a whole index.  If that fails
   too, the next transaction finishes the commit. */
static void undo_overwriting(OpenIndex *index)
{
    KeepErrno keep;
    FdGuard backup(open_side_file(index, endings_of(index->mode).backup, O_RDONLY));
    if (backup.fd >= 0 && copy_durably(backup.fd, index->fd) == 0) undo_backup(index);
}

static int remove_side_files(OpenIndex *index, int mode)
{
    const SideEndings &endings = endings_of(index->mode);
    const bool has_second = index->second_fd > 0;
    close_copies(index);
    if (remove_side_file(index, endings.backup) < 0) return -1;
    if (remove_side_file(index, endings.work) < 0) return -1;
    if (!has_second || mode == INDEX_KEEP_SECOND) return 0;
    return remove_side_file(index, endings.second);
}

static int commit_work_copy(OpenIndex *index, int mode)
{
    if (make_backup(index) < 0 || sync_parent_directory(index->name) < 0) {
        undo_backup(index);
        return -1;
    }
    if (overwrite_index(index) < 0) {
        undo_overwriting(index);
        return -1;
    }
    return remove_side_files(index, mode);
}

static int commit_index(OpenIndex *index, int mode)
{
    if (index->new_fd >= 0) return commit_work_copy(index, mode);
    return index->renew_time ? os->futimens(index->fd, nullptr) : 0;
}

/* Whether #mix is as the transaction found it. */
static bool changed_nothing(const OpenIndex *index)
{
    return index->lazy && index->new_fd < 0 && !index->renew_time;
}

static int commit_and_note_time(OpenIndex *index, int mode, struct timespec *changed_out)
{
    struct stat status = index->found;
    const bool as_found = changed_nothing(index);
    if (commit_index(index, mode) < 0) return -1;
    if (changed_out == nullptr) return 0;
    if (!as_found && os->fstat(index->fd, &status) < 0) return -1;
    *changed_out = status.st_mtim;
    return 0;
}

/* Ends and releases.  0 with the modification time, or -1 with errno. */
static int end_index(OpenIndex *index, int mode, struct timespec *changed_out)
{
    if (index->error_code != 0) {
        if (index->error_code > 0) errno = index->error_code;
        abandon_index(index);
        return -1;
    }
    const int ended = commit_and_note_time(index, mode, changed_out);
    if (ended == 0 && keeps_descriptor(mode)) index->fd = -1; /* the caller's */
    discard_index(index);
    return ended;
}

int32_t mlmbx_closeidx(IndexHandle *index, int mode)
{
    if (index == nullptr || index == NO_INDEX_HANDLE) return -1;
    struct timespec changed;
    if (end_index(open_index_of(index), mode, &changed) < 0) return -1;
    return static_cast<int32_t>(changed.tv_sec);
}

KeptIndex IndexTransaction::keep_file()
{
    OpenIndex *index = open_index_of(take());
    const KeptIndex kept = unlock_index_file(index->fd, &index->found);
    index->fd = -1;
    abandon_index(index);
    return kept;
}

int IndexTransaction::end(struct timespec *changed_out)
{
    return end_index(open_index_of(take()), INDEX_PLAIN, changed_out);
}
