/* The interpreter of command mails. */
#include "commands/cmd.h"

#include <stdio.h>
#include <string.h>

#include "commands/cmd_table.h"
#include "module/ascii.h"
#include "module/host_functions.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/str.h"

/* -- recognising -- */

static bool begins_argument(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/* What stands behind the number sign of a command line; null when the line is none. */
static const char *command_text(const char *line)
{
    line = skip_space_tab(line);
    if (*line != '#') return nullptr;
    line = skip_space_tab(line + 1);
    return *line == '\r' || *line == '\n' ? nullptr : line;
}

bool is_command(const char *line)
{
    return command_text(line) != nullptr;
}

/* Whether the sender is the list's owner or the mail system, who alone may push. */
static bool may_push(const DeliveryJob *job)
{
    if (debug_switch() != 0) return true;
    char owner[LIST_NAME_SIZE + 8];
    snprintf_(owner, sizeof(owner), "owner-%s", job->list_name);
    if (begins_nocase(job->sender, owner) || begins_nocase(job->sender, "MAILER-DAEMON"))
        return true;
    trace_sys(&g_logh, 1, 92, "mlname=%s invalid owner for push [%s]", job->list_name, job->sender);
    return false;
}

/* Number of the command whose word the text begins with, -1 none; its argument. */
static int find_command(const DeliveryJob *job, const char *text, const char **argument_out)
{
    for (int number = 0; *g_str_cmd[number] != '\0'; ++number) {
        const size_t length = strlen(g_str_cmd[number]);
        if (!begins_nocase(text, g_str_cmd[number]) || !begins_argument(text[length])) continue;
        if (number == COMMAND_PUSH && !may_push(job)) continue; /* to anyone else it is unknown */
        *argument_out = skip_space_tab(text + length);
        return number;
    }
    return -1;
}

/* -- answering -- */

/* 1 for an answer that was sent, else -1 with the text logged. */
static int answered(const DeliveryJob *job, int result, const FailText &fail)
{
    return result < 0 ? log_failure(fail, job->list_name) : 1;
}

static int refuse_unknown(DeliveryJob *job, const char *rest)
{
    static const FailText fail(1, 93, "mlname=%s Invalid Command Fail");
    char text[LINE_SIZE];
    strncpy_(text, rest, sizeof(text));
    strip_endchar(text);
    return answered(job, invalid_cmd(job, text), fail);
}

int cmdsubscribe_access(DeliveryJob *job)
{
    char line[LINE_SIZE];
    if (get_subscribe(job, job->sender, line) < 0) {
        trace_sys(&g_logh, 1, 1, "mlname=%s get_subscribe fail at subscribe", job->list_name);
        return -1;
    }
    return line[0] != '\0';
}

static int run(DeliveryJob *job, int number, const char *text)
{
    const CommandRow &row = command_rows[number];
    return answered(job, row.handler(job, text), row.fail);
}

static int run_subscribe(DeliveryJob *job, const char *text)
{
    static const FailText failed(1, 98, "mlname=%s Command Subscribe Fail");
    static const FailText denied(1, 99, "mlname=%s Denied Command Fail");
    const int access = cmdsubscribe_access(job);
    if (access < 0) return log_failure(failed, job->list_name);
    if (access == 0) return answered(job, denied_cmd(job, COMMAND_SUBSCRIBE), denied);
    return run(job, COMMAND_SUBSCRIBE, text);
}

int command_proc(const char *line, DeliveryJob *job)
{
    static const FailText inactive(1, 94, "mlname=%s Inactive Command Fail");
    static const FailText denied(1, 96, "mlname=%s Denied Command Fail");

    line = command_text(line);
    if (line == nullptr) return 1;
    const char *text = nullptr;
    const int number = find_command(job, line, &text);
    job->flags |= JOB_COMMAND_SEEN;
    if (number < 0) return refuse_unknown(job, line);

    const uint32_t bit = COMMAND_BIT(number);
    if ((job->settings.command_mask & bit) == 0)
        return answered(job, inactive_cmd(job, number), inactive);
    if ((job->settings.nonmember_command_mask & bit) == 0 && job->access_result == 0)
        return answered(job, denied_cmd(job, number), denied);
    return number == COMMAND_SUBSCRIBE ? run_subscribe(job, text) : run(job, number, text);
}
