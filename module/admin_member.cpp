/* Administration of the members (mlist/admin.h). */
#include <errno.h>
#include <string.h>

#include "mlist/admin.h"
#include "mlist/mlist.h"
#include "module/admin_session.h"
#include "module/guards.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/rewrite.h"
#include "store/roster.h"
#include "store/str.h"

/* -- many members, one rewrite -- */

static bool are_words(const char *const *addresses, size_t count, int *results)
{
    bool good = true;
    for (size_t i = 0; i < count; ++i) {
        results[i] = is_one_word(addresses[i]) ? 0 : -1;
        good &= results[i] == 0;
    }
    return good;
}

static bool any_of(const int *results, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        if (results[i] != 0) return true;
    return false;
}

int mlist_member_add_many(ListSession *session, const char *const *addresses, size_t count,
                          int *results)
{
    if (!are_words(addresses, count, results)) return refuse_word();
    const RosterSet set(addresses, count);
    if (!set.ready() || get_members(&session->job, set, results) < 0) return -1;
    for (size_t i = 0; i < count; ++i)
        results[i] = set.first_of(i) == i && results[i] == 0;
    return any_of(results, count) ? add_mlmbrs(&session->job, set, results) : 0;
}

int mlist_member_remove_many(ListSession *session, const char *const *addresses, size_t count,
                             int *results)
{
    const RosterSet set(addresses, count);
    if (!set.ready() || get_members(&session->job, set, results) < 0) return -1;
    return any_of(results, count) ? del_mlmbrs(&session->job, set) : 0;
}

int mlist_member_set_status_many(ListSession *session, const char *const *addresses, size_t count,
                                 int status, int *results)
{
    if (status < MEMBER_ON || status > MEMBER_DIGEST) {
        errno = EINVAL;
        return -1;
    }
    const RosterSet set(addresses, count);
    if (!set.ready() || get_members(&session->job, set, results) < 0) return -1;
    if (!any_of(results, count)) return 0;
    if (chg_mlmbrs(&session->job, set, status, results) < 0) return -1;
    for (size_t i = 0; i < count; ++i) /* an address again comes after the first */
        results[i] = results[set.first_of(i)] != 0;
    return 0;
}

/* -- one -- */

int mlist_member_status(ListSession *session, const char *address)
{
    char line[LINE_SIZE];
    if (get_member(&session->job, address, line) < 0) return -1;
    const char *space = strchr(line, ' ');
    return space != nullptr ? ms2mi(space + 1) : MEMBER_QUIT;
}

int mlist_member_add(ListSession *session, const char *address)
{
    int added;
    return mlist_member_add_many(session, &address, 1, &added) < 0 ? -1 : added;
}

int mlist_member_remove(ListSession *session, const char *address)
{
    int removed;
    return mlist_member_remove_many(session, &address, 1, &removed) < 0 ? -1 : removed;
}

int mlist_member_set_status(ListSession *session, const char *address, int status)
{
    int set;
    return mlist_member_set_status_many(session, &address, 1, status, &set) < 0 ? -1 : set;
}

/* -- the roster, line by line -- */

/* Opens a control file for reading, recovered.  Null on failure. */
static FileRecord *open_control(ListSession *session, const char *name)
{
    char path[PATH_SIZE];
    if (control_path(path, &session->job, name) < 0 || f_recover(path) < 0) return nullptr;
    return f_open(path, "r");
}

/* The next member's line, cut after its address.  1 with the status, 0 at the end, -1 failure. */
static int next_member(FileRecord *roster, char *line, int *status_out)
{
    while (Fgets(line, LINE_SIZE, roster) != nullptr) {
        char *space = strchr(line, ' ');
        if (space == nullptr) continue;
        *space = '\0';
        *status_out = ms2mi(space + 1);
        return 1;
    }
    return Ferror(roster) ? -1 : 0;
}

int mlist_member_each(ListSession *session, MemberVisitor visit, void *argument)
{
    FileRecord *roster = open_control(session, "member");
    if (roster == nullptr) return -1;
    char line[LINE_SIZE];
    int status = 0, result = 0, more;
    while (result == 0 && (more = next_member(roster, line, &status)) != 0)
        result = more < 0 ? -1 : visit(line, status, argument);
    (void)f_close(roster); /* only read */
    return result;
}

/* -- derived files -- */

/* Whether the next line of the derived file is this address. */
static bool next_line_is(FileRecord *derived, const char *address)
{
    char line[LINE_SIZE];
    if (Fgets(line, sizeof(line), derived) == nullptr) return false;
    chop(line);
    return strcmp(line, address) == 0;
}

/* 1 the derived file holds exactly the members with the status, 0 not, -1 failure. */
static int agrees(FileRecord *roster, FileRecord *derived, int wanted)
{
    char line[LINE_SIZE];
    int status = 0, more;
    while ((more = next_member(roster, line, &status)) > 0)
        if (status == wanted && !next_line_is(derived, line)) return 0;
    if (more < 0) return -1;
    return Fgets(line, sizeof(line), derived) == nullptr;
}

int mlist_derive(ListSession *session, const char *type)
{
    const bool active = strcmp(type, "active") == 0;
    if (!active && strcmp(type, "digest") != 0) {
        errno = EINVAL;
        return -1;
    }
    FileRecord *roster = open_control(session, "member");
    FileRecord *derived = roster != nullptr ? open_control(session, type) : nullptr;
    int same = -1;
    if (derived != nullptr) same = agrees(roster, derived, active ? MEMBER_ON : MEMBER_DIGEST);
    {
        KeepErrno keep;
        (void)f_close(derived); /* only read, both */
        (void)f_close(roster);
    }
    if (same != 0) return same < 0 ? -1 : 0;
    return reflect_include(&session->job, type) < 0 ? -1 : 1;
}
