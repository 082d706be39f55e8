/* The list lock, and the message number that is drawn under it. */
#ifndef MODULE_MLIST_LOCK_H
#define MODULE_MLIST_LOCK_H

#include "module/job.h"

/* A descriptor that holds an exclusive lock on the file, waiting for it; -1 with errno.  Shortage
   of memory or descriptors is waited out for about a minute. */
int fileopen(const char *path, int flags);

/* 0 when the list lock is held; -1 with errno, and JOB_LOCK_TIMED_OUT after EAGAIN. */
int file_lock(DeliveryJob *job);

/* Releases it if held. */
void file_unlock(DeliveryJob *job);

/* The archive's next number into the job; 0 or -1 (temporary failure recorded). */
int get_newno(DeliveryJob *job);

/* Adds 1 to the job's number, which from then on names the journal; always 0. */
int update_newno(DeliveryJob *job);

#endif
