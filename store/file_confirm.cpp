/* The "confirm" file: one pending confirmation a line,
       ADDRESS YYYY/MM/DD:HH:MM ID
   with the calendar's own fields: years from 1900, months from 0. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "module/ascii.h"
#include "module/guards.h"
#include "module/sink.h"
#include "store/confirm.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/side_files.h"
#include "store/str.h"

#define SECONDS_OF_A_DAY 86400

/* -- the lock -- */

struct LockTexts {
    FailText open;
    FailText lock;
};

/* "confirm.lock", held for the length of an operation. */
struct ConfirmLock {
    FdGuard guard{-1};

    /* 0, or -1 (logged). */
    [[nodiscard]] int take(const DeliveryJob *job, const LockTexts &texts)
    {
        char path[PATH_SIZE];
        if (control_path(path, job, "confirm.lock") == 0)
            guard.fd = open_file(path, O_RDWR | O_CREAT, 0700);
        if (guard.fd < 0) return log_failure(texts.open, job->list_name, path);
        if (lock_file(guard.fd, LOCK_EX) == 0) return 0;
        return log_failure(texts.lock, job->list_name, path);
    }
};

/* -- adding -- */

static const LockTexts add_lock = {
    {1, 279, "mlname=%s add_cnfrmdb flock open (%m) f=%s"},
    {1, 280, "mlname add_cnfrmdb flock (%m) f=%s"}, /* KEPT: no list name; it stands for the file.
                                   Test: Confirm.TheLockTextsAreThoseOfEachOperation */
};
static const FailText add_missing(1, 1, "mlname=%s add_cnfrmdb f_open %m [%s]");
static const FailText add_copy(1, 281, "mlname=%s add_cnfrmdb copy file error %m [%s %s]");
static const FailText add_open(1, 282, "mlname=%s add_cnfrmdb f_open error %m [%s]");
static const FailText add_write(1, 283, "mlname=%s add_cnfrmdb fputs error %m [%s]");
static const FailText add_close(1, 284, "mlname=%s add_cnfrmdb close error %m [%s]");
static const FailText add_renew(1, 285, "mlname=%s add_cnfrmdb renew error %m [%s]");

/* The new line.  0, or -1 with EOVERFLOW when the list's days lead beyond the calendar. */
static int format_line(const DeliveryJob *job, const char *address, const char *id, char *line,
                       size_t size)
{
    struct tm expiry;
    const int64_t days = job->settings.confirmation;
    if (getnewtime(&expiry, days * SECONDS_OF_A_DAY) < 0) {
        errno = EOVERFLOW;
        return -1;
    }
    snprintf_(line, size, "%s %04d/%02d/%02d:%02d:%02d %s\r\n", address, expiry.tm_year,
              expiry.tm_mon, expiry.tm_mday, expiry.tm_hour, expiry.tm_min, id);
    return 0;
}

/* Whether the file's last line has no line end; a line put behind it would be lost in it. */
static bool ends_within_line(const FileRecord *file)
{
    const off_t size = os->lseek(file->fd, 0, SEEK_END);
    char last = '\n';
    if (size > 0 && pread_some(file->fd, &last, 1, size - 1) != 1) return false;
    return last != '\n';
}

/* Appends to the copy, which is closed on every path. */
static int append_line(const DeliveryJob *job, const SideFiles &files, const char *line)
{
    FileRecord *file = f_open(files.new_path, "a");
    if (file == nullptr) return log_failure(add_open, job->list_name, files.new_path);
    if ((ends_within_line(file) && Fputs("\r\n", file) < 0) || Fputs(line, file) < 0) {
        (void)log_failure(add_write, job->list_name, files.new_path);
        abandon_file(file);
        return -1;
    }
    return f_close(file) ? 0 : log_failure(add_close, job->list_name, files.new_path);
}

/* KEPT: no recovery runs first; whoever reads the file has run it.
   Test: Confirm.AddingRunsNoRecovery */
static int add_line(const DeliveryJob *job, const char *path, const char *line)
{
    SideFiles files;
    FileRecord *proof = name_side_files(path, &files) < 0 ? nullptr : f_open(path, "r");
    if (proof == nullptr) return log_failure(add_missing, job->list_name, path);
    abandon_file(proof);

    if (clear_old_file(&files) < 0 || copy_whole(path, files.new_path) < 0) {
        (void)log_failure(add_copy, job->list_name, path, files.new_path);
        drop_new_file(&files);
        return -1;
    }
    if (append_line(job, files, line) < 0) return -1;
    return f_renew(path) < 0 ? log_failure(add_renew, job->list_name, path) : 0;
}

int add_cnfrmdb(DeliveryJob *job, const char *address, const char *id)
{
    ConfirmLock lock;
    char path[PATH_SIZE], line[LINE_SIZE + 64];
    if (lock.take(job, add_lock) < 0) return -1;
    if (control_path(path, job, "confirm") < 0 ||
        format_line(job, address, id, line, sizeof(line)) < 0)
        return log_failure(add_missing, job->list_name, path);
    return add_line(job, path, line);
}

/* -- looking up -- */

static const LockTexts get_lock = {
    {1, 274, "mlname=%s get_cnfrmdb flock open (%m) f=%s"},
    {1, 275, "mlname=%s get_cnfrmdb flock (%m) f=%s"},
};
static const FailText get_recover(1, 276, "mlname=%s get_cnfrmdb recover error %m [%s]");
static const FailText get_open(1, 277, "mlname=%s get_cnfrmdb f_open error %m [%s]");
static const FailText get_read(1, 278, "mlname=%s get_cnfrmdb fgets error %m [%s]");

/* The id of a line if it is the address's and good; cuts the line.  Null if not. */
static const char *id_of_line(char *line, const char *address, const struct tm *now)
{
    if (ascii_lower(static_cast<unsigned char>(line[0])) !=
        ascii_lower(static_cast<unsigned char>(address[0])))
        return nullptr;
    char *space = strchr(line, ' ');
    if (space == nullptr) return nullptr;
    *space = '\0';
    if (!same_text_nocase(line, address)) return nullptr;
    const char *id = validcnfrm(now, space + 1);
    if (id == nullptr) return nullptr;
    strip_endchar(space + (id - space));
    return *id != '\0' ? id : nullptr; /* an empty id would match any answer */
}

static int find_id(const DeliveryJob *job, FileRecord *file, const char *path, const char *address,
                   char *id_out)
{
    struct tm now = {};
    (void)getnewtime(&now, 0); /* a clock beyond the calendar expires nothing */
    char line[LINE_SIZE];
    while (Fgets(line, sizeof(line), file) != nullptr) {
        const char *id = id_of_line(line, address, &now);
        if (id == nullptr) continue;
        strncpy_(id_out, id, CONFIRM_ID_SIZE);
        return 1;
    }
    if (!Ferror(file)) return 0;
    out_printf("fgets error %d [%s]\n", errno, path);
    return log_failure(get_read, job->list_name, path);
}

int get_cnfrmdb(DeliveryJob *job, const char *address, char *id_out)
{
    id_out[0] = '\0';
    ConfirmLock lock;
    if (lock.take(job, get_lock) < 0) return -1;
    char path[PATH_SIZE];
    if (control_path(path, job, "confirm") < 0 || f_recover(path) < 0)
        return log_failure(get_recover, job->list_name, path);
    FileRecord *file = f_open(path, "r");
    if (file == nullptr) return log_failure(get_open, job->list_name, path);
    const int found = find_id(job, file, path, address, id_out);
    abandon_file(file);
    return found;
}

/* -- cleaning -- */

static const LockTexts cln_lock = {
    {1, 265, "mlname=%s cln_cnfrmdb flock open (%m) f=%s"},
    {1, 266, "mlname=%s cln_cnfrmdb flock (%m) f=%s"},
};
static const RewriteTexts cln_texts = {
    .recover = {1, 267, "mlname=%s cln_cnfrmdb recover error %m [%s]"},
    .open_new = {1, 268, "mlname=%s cln_cnfrmdb f_open error %m [%s]"},
    .open_source = {1, 269, "mlname=%s cln_cnfrmdb f_open error [%s]"},
    .write = {1, 270, "mlname=%s cln_cnfrmdb fputs error %m [%s]"},
    .read = {1, 271, "mlname=%s cln_cnfrmdb fgets error %m [%s]"},
    .close = {1, 272, "mlname=%s cln_cnfrmdb close error %m [%s]"},
    .renew = {1, 273, "mlname=%s cln_cnfrmdb renew error %m [%s]"},
};

int cln_cnfrmdb(DeliveryJob *job)
{
    ConfirmLock lock;
    if (lock.take(job, cln_lock) < 0) return -1;
    struct tm now = {};
    (void)getnewtime(&now, 0); /* as above */

    ControlRewrite rewrite(job, cln_texts);
    if (rewrite.recover("confirm") < 0 || rewrite.open_new() < 0 ||
        rewrite.open_source("confirm") < 0)
        return -1;
    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0) {
        char text[VIEW_LINE_SIZE];
        copy_view(text, line);
        const char *space = strchr(text, ' ');
        if (space == nullptr || validcnfrm(&now, space + 1) == nullptr) continue;
        if (rewrite.keep(line) < 0) return -1;
    }
    return got < 0 ? -1 : rewrite.commit();
}
