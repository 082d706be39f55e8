/* What the module sends to syslog(3), in place of the C library's own. */
#ifndef TESTS_LOG_SYSLOG_CAPTURE_H
#define TESTS_LOG_SYSLOG_CAPTURE_H

#include <string>
#include <vector>

/* "PRIORITY text" of every call since the last take, "%m" resolved. */
std::vector<std::string> take_syslog();

#endif
