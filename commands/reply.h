/* Mails that the module writes itself, as files of the list's "msg" directory. */
#ifndef COMMANDS_REPLY_H
#define COMMANDS_REPLY_H

#include "module/job.h"

/* Writes the denial notice "msg/mldeny.TID" over the journal copy of the refused message.  0, or
   -1 (logged).  Submitting and deleting it is the caller's. */
int create_mldeny(DeliveryJob *job, const char *reason);

/* Header builders: each empties destination and puts its block there; a block that does not fit
   into size is logged and left out. */
void make_cmdrpy_header(DeliveryJob *job, const char *word, char *destination, int size);
void make_dgtrpy_header(DeliveryJob *job, char *destination, int size);
void make_mldeny_header(DeliveryJob *job, char *destination, int size);
void make_cmdrpy_mimeheader(DeliveryJob *job, char *destination, int size);
void make_cmdrpy_mimetext(DeliveryJob *job, char *destination, int size);
void make_cmdrpy_mimemail(DeliveryJob *job, char *destination, int size);
void make_cmdrpy_mimeperiod(DeliveryJob *job, char *destination, int size);

#endif
