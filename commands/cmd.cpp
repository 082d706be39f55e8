/* The interpreter of command mails.  Commands are not there yet: a command mail is refused, with a
   log line that says why, and nothing of it is carried out. */
#include "commands/cmd.h"

#include "module/unix_sv.h"

static int refuse(const DeliveryJob *job)
{
    trace_sys(&g_logh, 1, 1, "mlname=%s commands by mail are not available", job->list_name);
    return -1;
}

int command_proc(const char *, DeliveryJob *job)
{
    return refuse(job);
}

int nothing_cmd(DeliveryJob *job)
{
    return refuse(job);
}
