/* mlist.so.0: entry points and module-wide variables.

   Thread rules.  ModuleInitialize() runs once, before anything else and before the process has
   more than one thread in the module.  ModuleMain() may run on any number of threads at once;
   deliveries to one list wait for each other on the list's lock, across processes too.  The
   archive driver (archive.h) may run beside them. */
#ifndef MLIST_MLIST_H
#define MLIST_MLIST_H

#include <pthread.h>
#include <stdint.h>

#include "mlist/archive.h"
#include "mlist/daily_log.h"
#include "mlist/delivery_request.h"
#include "mlist/fetch.h"
#include "mlist/host_functions.h"
#include "mlist/list_settings.h"
#include "mlist/module_record.h"
#include "mlist/output.h"
#include "mlist/search.h"
#include "mlist/token.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Exit codes of ModuleMain(), after <sysexits.h>. */
enum {
    MLIST_EXIT_ACCEPTED = 0, /* distributed, answered, or denied with a notice */
    MLIST_EXIT_REFUSED = 69, /* for good; reply_text says why */
    MLIST_EXIT_LATER = 75    /* try again later; reply_text says why */
};

/* Opens the log, creates tlskey_mlist, fills the variables below and reads the local
   configuration.  Always 1.  A second call repeats only what changes nothing. */
int ModuleInitialize(struct ModuleRecord *record);

/* Delivers one message; an exit code as above.  The request and everything it points at stay
   the host's.  Sets the process's file-creation mask to 017. */
int ModuleMain(struct DeliveryRequest *request);

/* Makes and releases the calling thread's Thread context, from the request's allocator.  For
   host threads that only use the archive driver; ModuleMain() does it for itself, and leaves a
   context that the thread has as it found it.  Threads without one work on a private context
   backed by malloc(). */
void tcbcreate(struct DeliveryRequest *request);
void tcbfree(void);

/* Lays the list's "init" file over the given settings.  0, or -1 (logged) with the settings as
   they were when the file cannot be read. */
int get_mlini(const char *list, const char *domain, struct ListSettings *settings);

/* Finishes or discards a replacement of the control file that was cut short.  0, or -1 (logged,
   reply text 474 or 475, temporary failure).  Call under the list lock, before reading a control
   file. */
int f_recover(const char *path);

/* Written by ModuleInitialize(), read-only once deliveries run.  A host may change the two roots
   and the switches between ModuleInitialize() and the first delivery. */
extern pthread_key_t tlskey_mlist;
extern struct ListSettings g_mlit;   /* default List settings */
extern char g_path_mlist[1024];      /* root of the control directories */
extern char g_mbox_list[1024];       /* root of the archives */
extern int32_t add_resent_header;    /* local configuration "ml_resent_header=" */
extern int32_t force_remove_bracket; /* local configuration "ml_remove_bracket=" */
extern int32_t ml_maxmsgsize;        /* local configuration "ml_maxmsgsize=" */
extern int32_t ml_webpasswd;         /* local configuration "ml_webpasswd=" */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
