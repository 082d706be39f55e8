/* Confirmation database: the pending ids of "subscribe" and "unsubscribe".

   Each operation holds an exclusive flock on the list's "confirm.lock" for its whole length, beside
   the list lock of the delivery.  Ids depend on nothing but the second of their making, by design
   of the format: they prove that a mail was read, not who sent it. */
#ifndef STORE_CONFIRM_H
#define STORE_CONFIRM_H

#include <stdint.h>
#include <time.h>

#include "module/job.h"

#define CONFIRM_ID_SIZE 17

/* A new id of 16 hexadecimal digits and NUL into the buffer, which it returns. */
char *mkcnfrm(char *buffer);

/* Appends a line for the address that expires after the list's number of days.  0 or -1. */
int add_cnfrmdb(DeliveryJob *job, const char *address, const char *id);

/* 1 with the id of an unexpired line of the address in id_out (CONFIRM_ID_SIZE bytes), 0 with an
   empty one when there is none, -1 on a failure. */
int get_cnfrmdb(DeliveryJob *job, const char *address, char *id_out);

/* Removes expired and malformed lines.  0 or -1. */
int cln_cnfrmdb(DeliveryJob *job);

/* Where the id begins in a line's text after the address, or null for a line that is malformed or
   expired at now.  A line is good up to and including its minute. */
const char *validcnfrm(const struct tm *now, const char *text);

/* Local time in so many seconds.  0, or -1 when the calendar has no such time. */
int getnewtime(struct tm *out, int64_t seconds);

#endif
