/* Thread contexts: the delivery's own, and the private one of threads that never deliver. */
#include "module/tcb.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "module/os.h"
#include "module/unix_sv.h"

extern "C" {
pthread_key_t tlskey_mlist;
}

static bool key_created;
static pthread_once_t key_once = PTHREAD_ONCE_INIT;

static thread_local int32_t known_number; /* 0: to be asked for */
static bool number_is_forgotten;          /* in children, so that it may be kept */

static void forget_number()
{
    known_number = 0;
}

static void create_key()
{
    key_created = pthread_key_create(&tlskey_mlist, nullptr) == 0;
    number_is_forgotten = pthread_atfork(nullptr, nullptr, forget_number) == 0;
}

void create_thread_key()
{
    pthread_once(&key_once, create_key);
}

int32_t thread_number()
{
    if (known_number != 0) return known_number;
    create_thread_key();
    const int32_t number = gettid();
    if (number_is_forgotten) known_number = number;
    return number;
}

/* What a thread owns besides its delivery: whether the record that the key points at may still be
   read, and the code that the last released record held. */
static thread_local bool context_live;
static thread_local int32_t released_code;

/* -- the private context of threads without a delivery -- */

static int refuse_submission(const char *, const char *, const char *const *, const char *, char *)
{
    return 0;
}

void fill_own_request(DeliveryRequest *request, char *reply_text, char *result_text)
{
    request->submit = refuse_submission;
    request->reply_text = reply_text;
    request->result_text = result_text;
    request->allocate = malloc;
    request->release = free;
    request->keep_text = strdup;
}

static thread_local char private_reply[MLIST_REPLY_TEXT_SIZE];
static thread_local char private_result[MLIST_RESULT_TEXT_SIZE];
static thread_local DeliveryRequest private_request;
static thread_local ThreadContext private_context;

static ThreadContext *private_thread_context()
{
    if (private_context.request == nullptr) {
        fill_own_request(&private_request, private_reply, private_result);
        private_context.request = &private_request;
    }
    return &private_context;
}

ThreadContext *thread_context()
{
    if (!context_live) return private_thread_context();
    return static_cast<ThreadContext *>(pthread_getspecific(tlskey_mlist));
}

void tcbcreate(DeliveryRequest *request)
{
    create_thread_key();
    ThreadContext *context = static_cast<ThreadContext *>(request->allocate(sizeof(ThreadContext)));
    /* Without memory, or without a key that takes it, the thread goes on with its private one. */
    const bool owned =
        context != nullptr && key_created && pthread_setspecific(tlskey_mlist, context) == 0;
    if (!owned) {
        if (context != nullptr) request->release(context);
        context = private_thread_context();
    }
    memset(context, 0, sizeof(*context));
    context->request = request;
    context->start_time = static_cast<int32_t>(os->time(nullptr));
    context_live = owned;
}

ThreadContext *set_context_aside()
{
    ThreadContext *context = context_live ? thread_context() : nullptr;
    context_live = false;
    return context;
}

void take_context_back(ThreadContext *context)
{
    if (context == nullptr) return;
    context_live = pthread_setspecific(tlskey_mlist, context) == 0; /* as it took it before */
}

void tcbfree()
{
    ThreadContext *context = thread_context();
    released_code = context->result_code;
    if (!context_live) {
        memset(context, 0, sizeof(*context)); /* the private one starts anew */
        return;
    }
    context_live = false; /* the key keeps pointing at the released record; nobody follows it */
    context->request->release(context);
}

/* -- Result code -- */

/* The code now in force: the context's, or what it held when it was released. */
static int32_t stored_code()
{
    const ThreadContext *context = thread_context();
    if (context_live || context->result_code != 0) return context->result_code;
    return released_code;
}

void set_rcode(int code)
{
    ThreadContext *context = thread_context();
    trace_sys(&g_logh, 1, 1, "set code [%d]", context->result_code);
    context->result_code = code;
}

int get_rcode()
{
    const int32_t stored = stored_code();
    int code = stored;
    if (stored == 0) {
        trace_sys(&g_logh, 3, 1, "tls get value in get_rcode err=%d", errno);
        code = MLIST_EXIT_REFUSED;
    }
    trace_sys(&g_logh, 1, 1, "return code [%d]", stored);
    return code;
}

void setrc_tempfail()
{
    set_rcode(MLIST_EXIT_LATER);
}
