/* The table that drives command_proc(). */
#ifndef COMMANDS_CMD_TABLE_H
#define COMMANDS_CMD_TABLE_H

#include "commands/cmd.h"
#include "store/fail_text.h"

#define COMMAND_COUNT 11

struct CommandRow {
    int (*handler)(DeliveryJob *job, const char *text);
    FailText fail;
};

extern const CommandRow command_rows[COMMAND_COUNT]; /* by command number */

#endif
