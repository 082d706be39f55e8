/* Mails that the module writes itself, as files of the list's "msg" directory: replies to commands,
   digests and denial notices.  Line ends are CR LF unless a text says otherwise. */
#ifndef COMMANDS_REPLY_H
#define COMMANDS_REPLY_H

#include "module/job.h"

enum ReplyVariant {
    VARIANT_NORMAL = 0,
    VARIANT_INACTIVE = 1,
    VARIANT_ERROR = 2,
    VARIANT_DENIED = 3,
    VARIANT_CONFIRM = 4
};

/* Writes "msg/cmdrpy.TID".  kind is a command number or REPLY_INVALID_COMMAND, REPLY_NO_COMMAND;
   text is the confirmation id, the message-number argument, the list of message numbers or the
   rejected line, or null.  0 complete; -1 failure (logged), with whatever was written left for the
   thread's next reply to overwrite; 1 when a "summary" argument is malformed. */
int create_cmdrpy(DeliveryJob *job, int kind, const char *text, int variant);

/* Writes the denial notice "msg/mldeny.TID" over the journal copy of the refused message.  0, or
   -1 (logged).  Submitting and deleting it is the caller's. */
int create_mldeny(DeliveryJob *job, const char *reason);

/* The whole file, read under a shared flock, in host memory that the caller releases; null with
   errno when any step fails. */
char *file2memory(const char *path);

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
