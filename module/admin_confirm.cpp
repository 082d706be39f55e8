/* Administration of pending confirmations (mlist/admin.h). */
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>

#include "mlist/admin.h"
#include "module/admin_session.h"
#include "module/guards.h"
#include "store/confirm.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/str.h"

static const FailText list_lock(1, 447, "mlname=%s confirm list flock error %m [%s]");
static const FailText list_open(1, 448, "mlname=%s confirm list open error %m [%s]");
static const FailText list_read(1, 449, "mlname=%s confirm list read error %m [%s]");

/* The calendar's own fields are stored: years from 1900, months from 0. */
static void read_expiry(const char *text, PendingConfirmation *out)
{
    char *rest = nullptr;
    out->year = static_cast<int>(static_cast<uint32_t>(strtol(text, &rest, 10)) + 1900U);
    out->month = static_cast<int>(static_cast<uint32_t>(strtol(rest + 1, &rest, 10)) + 1U);
    out->day = static_cast<int>(strtol(rest + 1, &rest, 10));
    out->hour = static_cast<int>(strtol(rest + 1, &rest, 10));
    out->minute = static_cast<int>(strtol(rest + 1, &rest, 10));
}

/* What a line says; cuts it into its parts. */
static PendingConfirmation read_pending(char *line, const struct tm *now)
{
    static const struct tm long_ago = {}; /* for it no line has expired */
    PendingConfirmation pending = {};
    pending.address = pending.id = "";
    strip_endchar(line);
    char *space = strchr(line, ' ');
    if (space == nullptr) return pending;
    *space = '\0';
    pending.address = line;
    const char *id = validcnfrm(&long_ago, space + 1);
    if (id == nullptr) return pending;
    read_expiry(space + 1, &pending);
    pending.id = id;
    pending.valid = validcnfrm(now, space + 1) != nullptr;
    return pending;
}

static int visit_lines(ListSession *session, FileRecord *file, const char *path,
                       ConfirmVisitor visit, void *argument)
{
    struct tm now = {};
    (void)getnewtime(&now, 0); /* a clock beyond the calendar expires nothing */
    char line[LINE_SIZE];
    while (Fgets(line, sizeof(line), file) != nullptr) {
        const PendingConfirmation pending = read_pending(line, &now);
        const int result = visit(&pending, argument);
        if (result != 0) return result;
    }
    return Ferror(file) ? log_failure(list_read, session->job.list_name, path) : 0;
}

int mlist_confirm_each(ListSession *session, ConfirmVisitor visit, void *argument)
{
    const DeliveryJob *job = &session->job;
    char path[PATH_SIZE];
    FdGuard lock(-1);
    if (control_path(path, job, "confirm.lock") == 0)
        lock.fd = open_file(path, O_RDWR | O_CREAT, 0700);
    if (lock.fd < 0 || lock_file(lock.fd, LOCK_EX) < 0)
        return log_failure(list_lock, job->list_name, path);

    if (control_path(path, job, "confirm") < 0 || f_recover(path) < 0)
        return log_failure(list_open, job->list_name, path);
    FileRecord *file = f_open(path, "r");
    if (file == nullptr) return log_failure(list_open, job->list_name, path);
    const int result = visit_lines(session, file, path, visit, argument);
    abandon_file(file);
    return result;
}

int mlist_confirm_clean(ListSession *session)
{
    return cln_cnfrmdb(&session->job);
}
