/* The host's libraries for benchmarks and fuzzers: what is logged is gone, nothing is configured.
 */
#include "ldapuse.h"
#include "mlog.h"

extern "C" {
int mlog_init(int facility, LogHandle *handle, int flags)
{
    *handle = LogHandle{facility, 0, flags, 0};
    return 0;
}

int mlog_set_loglevel(LogHandle *handle, int32_t level)
{
    handle->level = level;
    return 0;
}

int mlog(LogHandle *, int, int, const char *)
{
    return 0;
}

int mlog_sys(LogHandle *, int, int, const char *)
{
    return 0;
}

int kyt_conf_init(int)
{
    return KYT_FOUND;
}

int kyt_smtp_servicesconf_search(int32_t *, int32_t *, int32_t *, char *, int32_t *, int32_t *,
                                 int32_t *, int32_t *, int32_t *, int32_t *, int32_t *)
{
    return KYT_NOT_FOUND;
}

int kyt_ml_welcomemsg_search(const char *, const char *, char *)
{
    return KYT_NOT_FOUND;
}

int kyt_ml_helpmsg_search(const char *, const char *, int32_t *, char *, int32_t *)
{
    return KYT_NOT_FOUND;
}
}
