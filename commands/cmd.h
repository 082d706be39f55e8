/* Command mails: the interpreter of "# word argument" lines and the commands themselves.

   Runs under the list lock on the delivering thread.  Every command line is answered by a mail of
   its own, refusals too; only a failure to change, compose or send is an error. */
#ifndef COMMANDS_CMD_H
#define COMMANDS_CMD_H

#include "mlist/list_settings.h"
#include "module/job.h"

/* Reply kinds beside the command numbers. */
enum { REPLY_INVALID_COMMAND = 100, REPLY_NO_COMMAND = 101 };

/* The command words by number, closed by an empty word. */
extern const char *const g_str_cmd[];

/* The word of a command number, "" for any other kind. */
const char *command_word(int kind);

/* Whether the line is a command, be it one that nobody knows. */
bool is_command(const char *line);

/* One body line of a command mail, its line end included.  1 the line was dealt with, -1 a failure
   that ends the delivery. */
int command_proc(const char *line, DeliveryJob *job);

/* 1 the sender may subscribe, 0 not, -1 failure. */
int cmdsubscribe_access(DeliveryJob *job);

/* Refusals: each composes and sends one reply.  0 or -1. */
int inactive_cmd(DeliveryJob *job, int number);
int denied_cmd(DeliveryJob *job, int number);
int invalid_cmd(DeliveryJob *job, const char *text);

/* Answers a command mail in which no command was found.  0 or -1. */
int nothing_cmd(DeliveryJob *job);

/* Handlers.  0, or -1 when the delivery has to end; text is the argument, line end included. */
int cmd_help(DeliveryJob *job);
int cmd_subscribe(DeliveryJob *job, const char *text);
int cmd_unsubscribe(DeliveryJob *job, const char *text);
int cmd_member(DeliveryJob *job);
int cmd_off(DeliveryJob *job);
int cmd_on(DeliveryJob *job);
int cmd_summary(DeliveryJob *job, const char *text);
int cmd_get(DeliveryJob *job, const char *text);
int cmd_stat(DeliveryJob *job);
int cmd_digest(DeliveryJob *job);
int cmd_push(DeliveryJob *job);

#endif
