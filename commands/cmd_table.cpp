/* The commands: words, handlers and failure texts, one row each. */
#include "commands/cmd_table.h"

const char *const g_str_cmd[] = {
    "help",    "subscribe", "unsubscribe", "member", "off",  "on",
    "summary", "get",       "stat",        "digest", "push", "",
};

const char *command_word(int kind)
{
    return kind >= 0 && kind < COMMAND_COUNT ? g_str_cmd[kind] : "";
}

/* -- handlers without an argument, in the shape of the others -- */
template <int (*handler)(DeliveryJob *)> static int without_text(DeliveryJob *job, const char *)
{
    return handler(job);
}

/* KEPT: help follows the subscribe refusal in the numbering, and push closes it.
   Test: CommandFailures.EveryHandlersFailureHasItsOwnText */
const CommandRow command_rows[COMMAND_COUNT] = {
    {without_text<cmd_help>, {1, 97, "mlname=%s Command Help Fail"}},
    {cmd_subscribe, {1, 100, "mlname=%s Command Subscribe Fail"}},
    {cmd_unsubscribe, {1, 101, "mlname=%s Command Unsubscribe Fail"}},
    {without_text<cmd_member>, {1, 102, "mlname=%s Command Member Fail"}},
    {without_text<cmd_off>, {1, 103, "mlname=%s Command Off Fail"}},
    {without_text<cmd_on>, {1, 104, "mlname=%s Command On Fail"}},
    {cmd_summary, {1, 105, "mlname=%s Command Summary Fail"}},
    {cmd_get, {1, 106, "mlname=%s Command Get Fail"}},
    {without_text<cmd_stat>, {1, 107, "mlname=%s Command Stat Fail"}},
    {without_text<cmd_digest>, {1, 108, "mlname=%s Command Digest Fail"}},
    {without_text<cmd_push>, {1, 109, "mlname=%s Command Push Fail"}},
};
