/* What a session of the administration interface is made of. */
#ifndef MODULE_ADMIN_SESSION_H
#define MODULE_ADMIN_SESSION_H

#include "mlist/admin.h"
#include "mlist/delivery_request.h"
#include "module/job.h"
#include "module/tcb.h"

/* A session is its own little host: a request over malloc() that cannot submit, so that reply
   texts and temporary failures of the operations have a place to go to. */
struct ListSession {
    DeliveryRequest request;
    char reply_text[MLIST_REPLY_TEXT_SIZE];
    char result_text[MLIST_RESULT_TEXT_SIZE];
    DeliveryJob job;
    ThreadContext *outer_context; /* what the thread had before the session */
};

/* Longer lines come back in pieces from some readers of the control files. */
#define ADMIN_WORD_MAX 1000

/* Whether a text can be stored as a line of its own, or at the beginning of one: not empty, not too
   long, no blank and no control character in it. */
bool is_one_word(const char *text);

/* Always -1, with EINVAL. */
int refuse_word();

#endif
