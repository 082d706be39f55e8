/* Crash-safe replacement of a control file F through the side files F.new and F.old.

   F.new  F.old   meaning                                            f_recover()
   -      -       at rest                                            nothing
   yes    -       being written, or copied with only its removal     removes F.new
                  left
   yes    yes     committed; F may be half overwritten               copies F.new over F, removes
                                                                     F.old, then F.new
   -      yes     a draft of the next contents (below), or what a    nothing: the next rewrite
                  machine that lost power did not forget             removes F.old before it
                                                                     opens F.new

   F is overwritten in place, so that its inode, owner and mode stay.  A writer goes through these
   states from top to bottom and back to the first:

     writes F.new, synced                       F.new alone
     f_renew1: copies F to F.old, synced        both: the commit
     f_renew2: copies F.new to F, synced        both
               removes F.old                    F.new alone
               removes F.new                    at rest

   A step's names are synced where the next step relies on them.  A copy that came out short is
   that step's failure: both side files stay, and the next f_recover() tries again.

   That F.old is gone has to be on the disk before there is a F.new again that is not whole: a
   machine that lost power might remember the one and forget the other.  A large file's writer
   syncs the directory for it after the removal.  A small file's writer, of which every posting is
   one, writes a draft instead: the next contents as F.old, synced, then renamed to F.new.  So its
   F.new is whole from the first, and the only sync of the directory is that of the commit: until
   then F is what it was. */
#include <errno.h>
#include <fcntl.h>

#include "module/guards.h"
#include "module/join.h"
#include "module/os.h"
#include "module/outcome.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/side_files.h"

/* -- side files -- */

static int append_ending(char *out, const char *path, const char *ending)
{
    return join_texts(out, PATH_SIZE - 1, {path, ending});
}

int name_side_files(const char *path, SideFiles *out)
{
    return append_ending(out->new_path, path, ".new") < 0 ||
                   append_ending(out->old_path, path, ".old") < 0
               ? -1
               : 0;
}

/* Makes what happened to the names in the directory of path durable.  Some file systems have no
   sync of directories and say EINVAL; their names are as durable as they get. */
static int sync_names(const char *path)
{
    return sync_parent_directory(path) == 0 || errno == EINVAL ? 0 : -1;
}

static int remove_if_there(const char *path)
{
    return delfile(path) == 0 || errno == ENOENT ? 0 : -1;
}

int clear_old_file(const SideFiles *files)
{
    if (!extfile(files->old_path) || extfile(files->new_path)) return 0;
    return remove_if_there(files->old_path) < 0 ? -1 : sync_names(files->old_path);
}

FileRecord *open_new_file(const SideFiles *files)
{
    return clear_old_file(files) < 0 ? nullptr : f_open(files->new_path, "w");
}

void drop_new_file(const SideFiles *files)
{
    KeepErrno keep;
    (void)delfile(files->new_path); /* what stays is removed by the next f_recover() */
}

/* -- replacement -- */

/* An empty F.old stands for an F that is not there yet: without that mark a writer that died while
   it copied F.new would leave a piece of F behind and F.new to be thrown away. */
static int mark_creation(const char *old_path)
{
    const int fd = open_file(old_path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    return fd < 0 ? -1 : os->close(fd);
}

int f_renew1(const char *path, const char *, const char *old_path)
{
    if (copy_whole(path, old_path) < 0 && (errno != ENOENT || mark_creation(old_path) < 0))
        return -1;
    return sync_names(old_path);
}

int f_renew2(const char *path, const char *new_path, const char *old_path)
{
    const bool created = !extfile(path);
    if (copy_whole(new_path, path) < 0) return -1;
    if (created && sync_names(path) < 0) return -1;
    if (remove_if_there(old_path) < 0 || sync_names(old_path) < 0) return -1;
    return delfile(new_path);
}

/* What every failure of this file ends in.  errno, which the caller has logged, is kept. */
static int fail_for_now(int outcome, const char *path)
{
    put_outcome(outcome, path);
    setrc_tempfail();
    return -1;
}

static int first_half_failed(const char *path)
{
    trace_sys(&g_logh, 3, 286, "renew1 error (%m) [%s]", path);
    return fail_for_now(472, path);
}

static int second_half_failed(const char *path)
{
    trace_sys(&g_logh, 3, 287, "renew2 error (%m) [%s]", path);
    return fail_for_now(473, path);
}

int f_renew(const char *path)
{
    SideFiles files;
    if (name_side_files(path, &files) < 0 || f_renew1(path, files.new_path, files.old_path) < 0)
        return first_half_failed(path);
    return f_renew2(path, files.new_path, files.old_path) < 0 ? second_half_failed(path) : 0;
}

/* -- replacement by a draft -- */

FileRecord *open_draft(const SideFiles *files)
{
    return f_open(files->old_path, "w");
}

void drop_draft(const SideFiles *files)
{
    KeepErrno keep;
    (void)delfile(files->old_path); /* what stays is overwritten by the next draft */
}

static int commit_draft(const char *path, const SideFiles *files, const Contents *contents)
{
    if (os->rename(files->old_path, files->new_path) < 0) return -1;
    if (contents->before == nullptr) return f_renew1(path, files->new_path, files->old_path);
    if (write_anew(files->old_path, contents->before, contents->before_size) < 0) return -1;
    return sync_names(files->old_path);
}

static int put_in_place(const char *path, const SideFiles *files, const Contents *contents)
{
    if (contents->before == nullptr) return f_renew2(path, files->new_path, files->old_path);
    if (overwrite_whole(path, contents->after, contents->after_size) < 0) return -1;
    return remove_if_there(files->old_path) < 0 ? -1 : delfile(files->new_path);
}

int renew_from_draft(const char *path, const Contents *contents)
{
    SideFiles files;
    if (name_side_files(path, &files) < 0 || commit_draft(path, &files, contents) < 0)
        return first_half_failed(path);
    return put_in_place(path, &files, contents) < 0 ? second_half_failed(path) : 0;
}

/* -- recovery -- */

/* 1 the file is there, 0 it is not, -1 nobody can tell: then nothing may be concluded from it. */
static int find_file(const char *path)
{
    struct stat status;
    if (os->stat(path, &status) == 0) return 1;
    return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
}

static int roll_forward_failed(const char *path)
{
    trace_sys(&g_logh, 3, 290, "recover1 error (%m)");
    return fail_for_now(474, path);
}

static int discard_failed(const char *path)
{
    trace_sys(&g_logh, 3, 291, "recover2 error (%m)");
    return fail_for_now(475, path);
}

static int roll_forward(const char *path, const SideFiles *files)
{
    trace_sys(&g_logh, 5, 289, ".old detected [%s]", files->old_path);
    if (f_renew2(path, files->new_path, files->old_path) == 0) return 0;
    return roll_forward_failed(path);
}

int f_recover(const char *path)
{
    SideFiles files;
    if (append_ending(files.new_path, path, ".new") < 0) return discard_failed(path);
    const int has_new = find_file(files.new_path);
    if (has_new <= 0) return has_new < 0 ? discard_failed(path) : 0;
    if (append_ending(files.old_path, path, ".old") < 0) return discard_failed(path);
    trace_sys(&g_logh, 5, 288, ".new detected [%s]", files.new_path);
    const int has_old = find_file(files.old_path);
    if (has_old < 0) return roll_forward_failed(path);
    if (has_old > 0) return roll_forward(path, &files);
    return delfile(files.new_path) < 0 ? discard_failed(path) : 0;
}
