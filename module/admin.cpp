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
    job->thread_id = thread_number();
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
