/* The host's Delivery request: everything that ModuleMain() needs to know of one message. */
#ifndef MLIST_DELIVERY_REQUEST_H
#define MLIST_DELIVERY_REQUEST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Sizes of the two text buffers that a request points at. */
#define MLIST_REPLY_TEXT_SIZE 128
#define MLIST_RESULT_TEXT_SIZE 1024

/* Queues a message file for delivery.  Non-zero: accepted, file and recipients have been copied
   durably; the module deletes the file as soon as the call returns.  Zero: refused.

   envelope_sender   bare address
   recipients        null-terminated list of bare addresses, or null
   recipient_file    one of
                       null             recipients names everyone
                       "/..."           path of a file of addresses, one a line, CR LF; the list
                                        lock is free: take it exclusively, run f_recover() on the
                                        path, read the file, release the lock
                       digits, blanks   the message numbers of a digest; the recipients are the
                                        "digest" file of the list that envelope_sender
                                        (owner-LIST@DOMAIN) names; the caller holds the list lock,
                                        so read it without locking
   result_text       MLIST_RESULT_TEXT_SIZE bytes of the module's, zero-filled; the operation may
                     leave a text there

   Called on the delivering thread, often under the list lock: it must only queue, never deliver
   at once, and never call back into the module (f_recover() excepted).  The message file may be
   a hard link of an archived message: it is read, never written or locked. */
typedef int (*SubmitOp)(const char *file, const char *envelope_sender,
                        const char *const *recipients, const char *recipient_file,
                        char *result_text);

/* Memory of one delivery.  Allocate answers null when there is none, else memory aligned for any
   object; what is released need not stay readable. */
typedef void *(*AllocateOp)(size_t size);
typedef void (*ReleaseOp)(void *memory);

/* A copy of the text that lives until ModuleMain() has returned; null when there is no memory. */
typedef char *(*KeepTextOp)(const char *text);

struct DeliveryRequest {
    SubmitOp submit;
    const char *message_file; /* RFC 5322 text with CR LF line ends and a blank line after the
                                 header, no NUL, no Return-Path; read only */
    int32_t argument_count;   /* 1 or 2: slot 0 does not count */
    char **argument_vector;   /* slot 1 the list name, slot 2 (optional) "/c" for a command mail */
    const char *domain;       /* the list's domain, lower case, usable as a path component */
    char *reply_text;         /* MLIST_REPLY_TEXT_SIZE bytes; one outcome text on failure */
    char *result_text;        /* MLIST_RESULT_TEXT_SIZE bytes; the last text that submit left */
    AllocateOp allocate;
    ReleaseOp release;
    KeepTextOp keep_text;
};

#ifdef __cplusplus
}
static_assert(sizeof(DeliveryRequest) == 80);
static_assert(offsetof(DeliveryRequest, message_file) == 8);
static_assert(offsetof(DeliveryRequest, argument_count) == 16);
static_assert(offsetof(DeliveryRequest, argument_vector) == 24);
static_assert(offsetof(DeliveryRequest, domain) == 32);
static_assert(offsetof(DeliveryRequest, reply_text) == 40);
static_assert(offsetof(DeliveryRequest, result_text) == 48);
static_assert(offsetof(DeliveryRequest, allocate) == 56);
static_assert(offsetof(DeliveryRequest, keep_text) == 72);
#endif

#endif
