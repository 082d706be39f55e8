/* Questions that the pipeline asks about a message, and the texts it makes of names and times. */
#ifndef MODULE_MLIST_ACCESS_H
#define MODULE_MLIST_ACCESS_H

#include "module/job.h"

#define OWNER_ADDRESS_SIZE (LIST_NAME_SIZE + DOMAIN_SIZE + 16)

#define LIST_NAME_MAX 32

/* Whether a name would lead elsewhere when used as a path component. */
bool unusable_component(const char *name);

/* Copies a name for use as a path component: "/" and control characters become ":", capitals
   small.  out needs the length of in and a NUL. */
void address_check(const char *in, char *out);

/* -1 when the message's X-ML-Name begins with this list's address, or when the address is too
   long to tell; 0 no loop. */
int loop_mail(const DeliveryJob *job);

/* 1 the sender may post (is granted), 0 not, -1 failure. */
int mail_access(DeliveryJob *job);

/* 1 the sender is a member, 0 not, -1 failure. */
int mail_access2(DeliveryJob *job);

/* Local time as "2026/11/15 09:14" into 32 bytes. */
void strtime(char *out);

/* "owner-LIST@DOMAIN" into OWNER_ADDRESS_SIZE bytes. */
void owner_address(const DeliveryJob *job, char *out);

#endif
