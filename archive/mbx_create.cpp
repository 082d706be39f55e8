/* Creating and deleting a mailbox. */
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "archive/mbx.h"
#include "archive/unix_lk.h"
#include "module/ascii.h"
#include "module/guards.h"
#include "module/os.h"
#include "module/unix_sv.h"

/* The path being worked on, cut at times at a parent, and room for a name below it.  One for the
   whole recursion: paths may have very many components. */
struct CreatePath {
    char path[MBX_NAME_SIZE];
    char name[MBX_NAME_SIZE];
};

static int create_mailbox(CreatePath *at);

/* 0 made, or there before; -1 with errno. */
static int make_directory(const char *path)
{
    if (os->mkdir(path, 0700) == 0 || errno == EACCES || errno == EEXIST) return 0;
    return -1;
}

static int refuse_first_error(const char *path)
{
    trace_sys(&g_logh, 11, 607, "mbx_create: mkdir %s err1(%m)", path);
    return 0;
}

static int refuse_second_error(const char *path)
{
    trace_sys(&g_logh, 11, 608, "mbx_create: mkdir %s err2(%m)", path);
    return 0;
}

/* KEPT: a missing parent directory is created as a mailbox, with all that belongs to one.
   Test: MailboxCreate.MakesMissingParentsMailboxes */
static int make_under_parent(CreatePath *at)
{
    char *slash = strrchr(at->path, '/');
    if (slash == nullptr) return refuse_first_error(at->path);
    *slash = '\0';
    const int created = create_mailbox(at);
    *slash = '/';
    if (created == 0) return 0;
    if (make_directory(at->path) == 0) return 1;
    return errno == ENOENT ? refuse_first_error(at->path) : refuse_second_error(at->path);
}

static int make_mailbox_directory(CreatePath *at)
{
    if (make_directory(at->path) == 0) return 1;
    return errno == ENOENT ? make_under_parent(at) : refuse_second_error(at->path);
}

static int make_message_directory(CreatePath *at)
{
    if (join_name(at->name, at->path, "#msg") == 0 && make_directory(at->name) == 0) return 1;
    trace_sys(&g_logh, 11, 609, "mbx_create: mkdir %s err3(%m)", at->name);
    return 0;
}

static int write_empty_index(const char *name)
{
    FdGuard file(open_waiting(name, O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (file.fd < 0) return -1;
    const IndexRecord header = {1, static_cast<uint32_t>(os->time(nullptr)), 1, 0};
    if (write_all(file.fd, &header, sizeof(header)) < 0 || os->fsync(file.fd) < 0) return -1;
    return os->close(file.take());
}

/* Nobody may ever see #mix without its header and take it for a damaged one: it is written under
   a name of the thread's own, which a crash may leave behind, and then linked to its place. */
static int link_empty_index(const char *own_name, const char *name)
{
    (void)os->unlink(own_name);
    int linked = write_empty_index(own_name);
    if (linked == 0) linked = os->link(own_name, name);
    KeepErrno keep;
    (void)os->unlink(own_name);
    return linked;
}

static int make_index(CreatePath *at)
{
    char own_name[MBX_NAME_SIZE];
    struct stat status;
    int made = index_name(at->name, at->path);
    if (made == 0 && os->stat(at->name, &status) == 0) return 0;
    if (made == 0) {
        char ending[32];
        snprintf(ending, sizeof(ending), ".made%d", static_cast<int>(gettid()));
        made = side_name(own_name, at->name, ending);
    }
    if (made == 0) made = link_empty_index(own_name, at->name);
    if (made < 0 && errno == EEXIST) return 0;
    if (made == 0) made = sync_parent_directory(at->name);
    if (made == 0) return 1;
    trace_sys(&g_logh, 11, 610, "mbx_create: Cannot create idx %s (%m)", at->name);
    return 0;
}

static int create_mailbox(CreatePath *at)
{
    return make_mailbox_directory(at) && make_message_directory(at) && make_index(at) ? 1 : 0;
}

int mlmbx_create(const char *path)
{
    CreatePath at;
    if (strlen(path) >= sizeof(at.path)) {
        errno = ENAMETOOLONG;
        return refuse_second_error(path);
    }
    strcpy(at.path, path);
    if (create_mailbox(&at) == 0) return 0;
    (void)sync_parent_directory(at.path); /* best effort: the mailbox is complete */
    return 1;
}

/* -- delete -- */

static void delete_messages(const char *directory_name)
{
    DIR *directory = opendir(directory_name);
    if (directory == nullptr) return;
    char name[MBX_NAME_SIZE];
    for (const dirent *entry = readdir(directory); entry != nullptr; entry = readdir(directory))
        if (is_ascii_digit(static_cast<unsigned char>(entry->d_name[0])) &&
            join_name(name, directory_name, entry->d_name) == 0)
            (void)os->unlink(name);
    closedir(directory);
}

int mlmbx_delete(const char *path)
{
    char name[MBX_NAME_SIZE];
    if (index_name(name, path) < 0) return 1;
    /* With the lock no transaction is under way that would put something back; without an index,
       or when this very thread has it open, there is nothing to wait for. */
    const int fd = lock_index_file(name);
    (void)os->unlink(name);
    if (join_name(name, path, "#msg") == 0) {
        delete_messages(name);
        (void)os->rmdir(name);
    }
    (void)os->rmdir(path);
    if (fd >= 0) (void)mllk_close(fd);
    return 1;
}
