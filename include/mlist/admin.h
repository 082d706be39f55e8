/* Administration of one list: a session holds the list's lock and changes the control files only
   through the module's own operations.  For tools; not for a thread that is delivering. */
#ifndef MLIST_ADMIN_H
#define MLIST_ADMIN_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct ListSession;

/* Takes the list's lock (waits for it), recovers nothing yet, and reads the settings.  The list's
   control directory must exist; names as ModuleMain() takes them (1 to 32 characters, no "/", no
   control characters, not "." or "..").  Null with errno on failure; EINVAL for a bad name.
   A session belongs to the thread that opened it, one at a time. */
struct ListSession *mlist_session_open(const char *list, const char *domain);

/* Releases the lock and the session; null is allowed. */
void mlist_session_close(struct ListSession *session);

/* The last reply text ("470 ..." to "475 ...") that an operation of this session left, or "". */
const char *mlist_session_reply(const struct ListSession *session);

/* Creates what is missing of the directories msg and jnl and of the files digest, active, member,
   status, dgtstat, confirm.  0, or -1 when a directory cannot be made. */
int mlist_session_check_files(struct ListSession *session);

/* 1 added, 0 the address is a member already, -1 failure (logged; EINVAL for an address that is
   empty, very long, or holds a blank or a control character). */
int mlist_member_add(struct ListSession *session, const char *address);

/* 1 removed, 0 it was no member, -1 failure. */
int mlist_member_remove(struct ListSession *session, const char *address);

/* status 1 on, 2 off, 3 digest.  1 set, 0 no member, -1 failure. */
int mlist_member_set_status(struct ListSession *session, const char *address, int status);

/* The same for so many addresses, with one rewrite of the roster: all of them, or none.  A result
   for each, as the single calls one after the other would have answered; what comes again, in
   whatever letters, counts as such.  0 done; -1 failure, logged, and the results say nothing:
   the roster is the old one, or, where what failed came after it, the new one, and mlist_derive()
   brings "active" and "digest" after it.  EINVAL of the first: nothing was done, and those that
   cannot be added have the result -1; of the last: no such status. */
int mlist_member_add_many(struct ListSession *session, const char *const *addresses, size_t count,
                          int *results);
int mlist_member_remove_many(struct ListSession *session, const char *const *addresses,
                             size_t count, int *results);
int mlist_member_set_status_many(struct ListSession *session, const char *const *addresses,
                                 size_t count, int status, int *results);

/* Status of an address: 1, 2, 3; 0 no member; -1 failure. */
int mlist_member_status(struct ListSession *session, const char *address);

/* Calls visit for each member in the roster's order until it answers non-zero.  The address is
   the callee's only during the call.  0, the visitor's answer, or -1 on failure. */
typedef int (*MemberVisitor)(const char *address, int status, void *argument);
int mlist_member_each(struct ListSession *session, MemberVisitor visit, void *argument);

/* Rewrites "active" or "digest" from the roster where it differs from what the roster gives.
   1 rewritten, 0 it agreed, -1 failure. */
int mlist_derive(struct ListSession *session, const char *type);

/* -- who may post ("grant": addresses) and who may subscribe ("subscribe": domains and patterns, an
   asterisk with the end of a domain).  An empty file is open: to every member, to everybody. -- */

/* 1 added, 0 it is there already, -1 failure; EINVAL for another file, for a text that cannot be an
   entry of it (see mlist_member_add()), and for an asterisk that admits nobody. */
int mlist_access_add(struct ListSession *session, const char *file, const char *text);

/* 1 removed, all lines of it, 0 it was not there, -1 failure. */
int mlist_access_remove(struct ListSession *session, const char *file, const char *text);

/* As mlist_member_each(), for the entries in the file's order. */
typedef int (*AccessVisitor)(const char *text, void *argument);
int mlist_access_each(struct ListSession *session, const char *file, AccessVisitor visit,
                      void *argument);

/* -- pending confirmations -- */

/* A line of "confirm".  One that cannot be read has no id, no date, and is not valid. */
struct PendingConfirmation {
    const char *address;
    const char *id;
    int year, month, day, hour, minute; /* local time up to and including which it is valid */
    int valid;                          /* now */
};

/* As mlist_member_each(), for every line; the texts are the callee's only during the call. */
typedef int (*ConfirmVisitor)(const struct PendingConfirmation *pending, void *argument);
int mlist_confirm_each(struct ListSession *session, ConfirmVisitor visit, void *argument);

/* Removes what has expired and what cannot be read.  0, or -1 on failure. */
int mlist_confirm_clean(struct ListSession *session);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
