/* What the module logged.  The unit tests link this in place of libmlog.so: mlog() and mlog_sys()
   append to one list, from any thread. */
#ifndef TESTS_LOG_CAPTURE_H
#define TESTS_LOG_CAPTURE_H

#include <stdint.h>

#include <string>
#include <vector>

struct LogLine {
    bool system; /* mlog_sys(), not mlog() */
    int level;
    int msgno;
    std::string text;
};

/* The log level that the service configuration has; -1 none. */
extern int32_t service_log_level;

/* Whether lines are collected, as they are unless told otherwise. */
extern bool log_collected;

/* Takes all lines collected so far out of the store. */
std::vector<LogLine> take_log();

/* Takes them and answers "LEVEL/MSGNO TEXT" each, those of level 11 and the result-code lines
   ("set code", "return code", "tls get value") left out unless all is true. */
std::vector<std::string> take_log_lines(bool all = false);

/* Whether a line with this number and exactly this text was logged since the last take. */
bool logged(int msgno, const std::string &text);

/* Whether a line with this number whose text begins so was logged since the last take. */
bool logged_prefix(int msgno, const std::string &prefix);

#endif
