/* One log entry, and the forms in which the targets show it. */
#ifndef HOST_LIBMLOG_LINE_H
#define HOST_LIBMLOG_LINE_H

#include <string>
#include <string_view>

struct LogEntry {
    const char *log; /* "mlog" or "mlog_sys" */
    int level;
    int msgno;
    std::string_view text;
};

/* The text with its control characters shown as \n, \r, \t or \xNN. */
void append_escaped(std::string &out, std::string_view text);

/* "LOG LEVEL MSGNO TEXT", escaped, without a line end. */
std::string plain_line(const LogEntry &entry);

/* The same behind the local time, with its line end. */
std::string dated_line(const LogEntry &entry);

/* The list that a text speaks of ("mlname=NAME", "[ml=NAME]"); empty when it names none. */
std::string_view list_of(std::string_view text);

/* The syslog priority of a level. */
int priority_of(int level);

#endif
