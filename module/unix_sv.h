/* Logging front end: everything that the module logs passes here. */
#ifndef MODULE_UNIX_SV_H
#define MODULE_UNIX_SV_H

#include <stdint.h>

#include "mlog.h"

struct DeliveryJob;

extern LogHandle g_logh;
extern int32_t g_logml_level;

/* Formats (at most 1,023 characters, longer texts are cut) and passes the text on to mlog() or
   mlog_sys(), whose result they return.  "%m" is the text of errno, which both keep. */
int trace(LogHandle *handle, int level, int msgno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
int trace_sys(LogHandle *handle, int level, int msgno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

/* "TRC: ..." and "LOG: ..." lines; part of the interface, called by no path of the module. */
int printtrace(const DeliveryJob *job, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
int printlog(const char *format, ...) __attribute__((format(printf, 1, 2)));

#endif
