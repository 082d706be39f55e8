/* Command mails: the interpreter of "# word argument" lines. */
#ifndef COMMANDS_CMD_H
#define COMMANDS_CMD_H

#include "module/job.h"

/* One body line of a command mail.  1 the line was dealt with, -1 a failure that ends the
   delivery. */
int command_proc(const char *line, DeliveryJob *job);

/* Answers a command mail in which no command was found.  0 or -1. */
int nothing_cmd(DeliveryJob *job);

#endif
