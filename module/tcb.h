/* The Thread context: per-thread record with the current request and the Result code. */
#ifndef MODULE_TCB_H
#define MODULE_TCB_H

#include <stdint.h>

#include "mlist/archive.h"
#include "mlist/delivery_request.h"
#include "mlist/mlist.h"

#define INDEX_NAME_SIZE 4095

/* The batch of appends that the thread has under way (archive/mbx_append.cpp). */
struct AppendBatch {
    IndexRecord *index; /* being appended to, host memory; null: no batch */
    uint32_t uid_validity;
    uint32_t last_uid; /* given to the last appended message */
    uint32_t capacity; /* records that fit into index */
};

/* Found through tlskey_mlist while a delivery (or a host between tcbcreate() and tcbfree()) owns
   one; every other thread has a private one backed by malloc(). */
struct ThreadContext {
    DeliveryRequest *request;
    char index_name[INDEX_NAME_SIZE + 1]; /* scratch of the archive's name operations */
    int32_t start_time;
    int32_t result_code;   /* 0 = not set */
    const char *host_text; /* the last text that the host returned from a submission */
    AppendBatch batch;
};

/* The calling thread's context, never null.  Its request is never null either: a thread without a
   delivery has one over malloc() that refuses to submit. */
ThreadContext *thread_context();

/* A request that stands in for a host's: memory of malloc(), no submission, and texts of
   MLIST_REPLY_TEXT_SIZE and MLIST_RESULT_TEXT_SIZE bytes. */
void fill_own_request(DeliveryRequest *request, char *reply_text, char *result_text);

/* gettid(2), asked once a thread and again in a child of fork(2). */
int32_t thread_number();

/* Creates tlskey_mlist once for the process. */
void create_thread_key();

/* For a delivery on a thread that has a context of its host's: what the thread had, or null, and
   its return when the delivery's own is released. */
ThreadContext *set_context_aside();
void take_context_back(ThreadContext *context);

/* Result code of the delivery: 75, or 0 when nothing was recorded.  get_rcode() answers 69 then.
   Both log; after tcbfree() they go on with the code that the released context held. */
void set_rcode(int code);
int get_rcode();
void setrc_tempfail();

#endif
