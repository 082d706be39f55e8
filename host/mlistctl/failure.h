/* How a verb fails: with what went wrong, what to do about it, and an exit status. */
#ifndef HOST_MLISTCTL_FAILURE_H
#define HOST_MLISTCTL_FAILURE_H

#include <string>
#include <utility>

/* 0 is success; 64 and up are those of <sysexits.h>. */
enum CtlExit {
    CTL_OK = 0,
    CTL_FAILED = 1,         /* the check found problems, an address was no member */
    CTL_USAGE = 2,          /* a wrong command line */
    CTL_BAD_DATA = 65,      /* an address or a message that cannot be used */
    CTL_NO_INPUT = 66,      /* a file to read is not there */
    CTL_NO_LIST = 67,       /* no such list */
    CTL_REFUSED = 69,       /* the daemon refused for good */
    CTL_SYSTEM = 71,        /* the operating system refused */
    CTL_CANNOT_CREATE = 73, /* it is there already */
    CTL_IO = 74,            /* reading or writing failed */
    CTL_LATER = 75,         /* the daemon cannot now */
    CTL_NO_PERMISSION = 77,
    CTL_BAD_CONFIGURATION = 78
};

struct Failure {
    int exit_status;
    std::string problem;
    std::string advice; /* "" when there is nothing to do about it */
};

/* The text of the current errno, as "what: why". */
std::string errno_text(const std::string &what);

/* Throws for a system call that failed on path, with an exit status and advice after errno. */
[[noreturn]] void fail_on_file(const std::string &what, const std::string &path);

/* Throws for an operation of the module that failed: what it logged explains it. */
[[noreturn]] void fail_in_module(const std::string &what);

#endif
