/* The daemon's own log lines, on the same channel as the module's.

   Numbers: 1000 start, configuration and stop; 1100 connections and LMTP; 1200 hosting the
   module; 1300 the queue; 1400 the digest clock. */
#ifndef HOST_MLISTD_HOSTLOG_H
#define HOST_MLISTD_HOSTLOG_H

#include <string>

enum LogNumber {
    LOG_START = 1000,
    LOG_STOP = 1001,
    LOG_CONFIGURATION = 1002,
    LOG_REOPENED = 1003,
    LOG_LIST_REPAIRED = 1010,
    LOG_LIST_UNUSABLE = 1011,
    LOG_JOURNAL_REMOVED = 1012,
    LOG_JOURNAL_LEFT = 1013,
    LOG_ACCEPT = 1100,
    LOG_TOO_MANY = 1101,
    LOG_SESSION = 1102,
    LOG_MESSAGE = 1103,
    LOG_REFUSED = 1104,
    LOG_DELIVERED = 1110,
    LOG_DROPPED = 1111,
    LOG_MODULE = 1200,
    LOG_SUBMIT = 1201,
    LOG_QUEUE = 1300,
    LOG_DIGEST = 1400,
    LOG_DIGEST_FAILED = 1401
};

/* One line; the text is never a format, controls in it are shown escaped.  errno is kept. */
void log_line(int level, LogNumber number, const std::string &text);

/* Level 1, 3, 5 and 11. */
void log_error(LogNumber number, const std::string &text);
void log_warning(LogNumber number, const std::string &text);
void log_notice(LogNumber number, const std::string &text);
void log_trace(LogNumber number, const std::string &text);

/* Before other threads run; lines above the level are dropped. */
void set_host_log_level(int level);

#endif
