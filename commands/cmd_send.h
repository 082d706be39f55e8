/* The sending steps that all replies to commands share. */
#ifndef COMMANDS_CMD_SEND_H
#define COMMANDS_CMD_SEND_H

#include <stddef.h>

#include "commands/reply.h"
#include "module/job.h"
#include "store/fail_text.h"

#define REPLY_ADDRESS_SIZE 1024

/* Sends the reply file to the sender and deletes it.  0, or -1 with the text logged and the file
   left in place. */
int send_reply(DeliveryJob *job, const FailText &fail);

/* The command log: "ML Command Log:  LIST SENDER\r\n>>> DONE" at level 5. */
void log_command(const DeliveryJob *job, int msgno, const char *done);

/* Composes a reply, sends it and logs it.  0 or -1. */
struct ReplyTexts {
    FailText create;
    FailText send;
    int log_number;
};
int answer(DeliveryJob *job, int kind, const char *text, int variant, const ReplyTexts &texts,
           const char *done);

/* Writes the address as the format that it once was: "%%" becomes "%", a conversion nothing, any
   other "%" itself.  At most size - 2 bytes. */
void expand_address(const char *address, char *out, size_t size);

#endif
