/* Administration of one list under its lock (mlist/admin.h). */
#include "mlist/admin.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "mlist/mlist.h"
#include "module/admin_session.h"
#include "module/guards.h"
#include "module/mlist_access.h"
#include "module/mlist_lock.h"
#include "module/tcb.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/str.h"

/* Stricter than a delivery, which makes a usable name of every character. */
static bool is_component(const char *name, size_t longest)
{
    if (unusable_component(name) || strlen(name) > longest) return false;
    for (const char *p = name; *p != '\0'; ++p)
        if (static_cast<unsigned char>(*p) < ' ' || *p == 0x7F) return false;
    return true;
}

static void fill_session(ListSession *session, const char *list, const char *domain)
{
    fill_own_request(&session->request, session->reply_text, session->result_text);
    DeliveryJob *job = &session->job;
    job->output = mlist_get_output();
    job->submit = session->request.submit;
    job->lock_fd = -1;
    job->header_index = -1;
    job->thread_id = gettid();
    address_check(list, job->list_name);
    address_check(domain, job->domain);
}

static void free_session(ListSession *session)
{
    tcbfree();
    take_context_back(session->outer_context);
    free(session);
}

ListSession *mlist_session_open(const char *list, const char *domain)
{
    if (!is_component(list, LIST_NAME_MAX) || !is_component(domain, DOMAIN_SIZE - 1)) {
        errno = EINVAL;
        return nullptr;
    }
    ListSession *session = static_cast<ListSession *>(calloc(1, sizeof(ListSession)));
    if (session == nullptr) return nullptr;
    fill_session(session, list, domain);
    session->outer_context = set_context_aside();
    tcbcreate(&session->request);
    if (file_lock(&session->job) < 0) {
        KeepErrno keep;
        free_session(session);
        return nullptr;
    }
    session->job.settings = g_mlit;
    (void)get_mlini(session->job.list_name, session->job.domain, &session->job.settings);
    return session;
}

void mlist_session_close(ListSession *session)
{
    if (session == nullptr) return;
    file_unlock(&session->job);
    free_session(session);
}

const char *mlist_session_reply(const ListSession *session)
{
    return session->reply_text;
}

int mlist_session_check_files(ListSession *session)
{
    if (check_directory(&session->job) < 0) return -1;
    (void)check_file(&session->job); /* never tells; what is missing shows in the next operation */
    return 0;
}

/* -- words that become lines -- */

bool is_one_word(const char *text)
{
    for (const char *p = text; *p != '\0'; ++p)
        if (static_cast<unsigned char>(*p) <= ' ' || *p == 0x7F) return false;
    return text[0] != '\0' && strlen(text) <= ADMIN_WORD_MAX;
}

int refuse_word()
{
    errno = EINVAL;
    return -1;
}

/* -- members -- */

int mlist_member_status(ListSession *session, const char *address)
{
    char line[LINE_SIZE];
    if (get_member(&session->job, address, line) < 0) return -1;
    const char *space = strchr(line, ' ');
    return space != nullptr ? ms2mi(space + 1) : MEMBER_QUIT;
}

static int is_member(ListSession *session, const char *address)
{
    char line[LINE_SIZE];
    if (get_member(&session->job, address, line) < 0) return -1;
    return line[0] != '\0';
}

int mlist_member_add(ListSession *session, const char *address)
{
    if (!is_one_word(address)) return refuse_word();
    const int known = is_member(session, address);
    if (known != 0) return known < 0 ? -1 : 0;
    return add_mlmbr(&session->job, address) < 0 ? -1 : 1;
}

int mlist_member_remove(ListSession *session, const char *address)
{
    const int known = is_member(session, address);
    if (known <= 0) return known;
    /* Not del_mlmbr(), which hides failures from those who answer a mail; several lines of one
       address may have stood in either file. */
    if (del_member(&session->job, address) < 0) return -1;
    if (reflect_include(&session->job, "active") < 0) return -1;
    return reflect_include(&session->job, "digest") < 0 ? -1 : 1;
}

int mlist_member_set_status(ListSession *session, const char *address, int status)
{
    const int known = is_member(session, address);
    if (known <= 0) return known;
    return chg_mlmbr(&session->job, address, status);
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
