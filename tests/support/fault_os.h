/* The module's system calls under the test's control (module/os.h). */
#ifndef TESTS_FAULT_OS_H
#define TESTS_FAULT_OS_H

#include <functional>
#include <string>
#include <vector>

#include "module/os.h"

/* What happens to one call.  Positive values are an errno. */
enum Fault {
    KILL = -1, /* the process dies: this and every later call does nothing and fails with EIO */
    SHORT_WRITE = -2, /* write or pwrite takes the first half */
    SHORT_READ = -3,  /* read or pread brings the first half */
};

/* While it lives, calls pass through its members; destroyed, the former record is back.  One at a
   time, while no other thread is in the module. */
class FaultOs
{
  public:
    FaultOs();
    ~FaultOs();
    FaultOs(const FaultOs &) = delete;
    FaultOs &operator=(const FaultOs &) = delete;

    /* Consulted before every call with its name ("open", "write", ...) and its path (for calls on a
       descriptor the one it was opened by, for calls of two paths the second).  0: go on. Positive:
       the call fails with that errno.  -1: the process "died": this and every later call does
       nothing and fails with EIO. */
    std::function<int(const std::string &call, const std::string &path)> before;

    /* Counts and fails the n-th (0-based) changing call (open with O_CREAT or O_TRUNC, write,
       pwrite, fsync, ftruncate, futimens, link, rename, unlink, mkdir, rmdir) with error, or dies
       there when error is -1. */
    void fail_nth_change(int nth, int error);

    /* The same for the n-th call of any kind to which that can happen: short writes to writes of
       more than a byte, EMFILE to opens, EINTR to what may wait, a full disk to what takes room. */
    void disturb_nth_call(int nth, int fault);

    bool disturbed() const;             /* whether that call was reached */
    std::string disturbed_call() const; /* "call path" of it */
    bool dead() const;

    /* Descriptors that were opened and not closed since.  A dead process has none: its files and
       locks are closed, which a test does with this before it starts afresh. */
    std::vector<std::string> open_files() const; /* their names */
    void close_open_files();

    time_t now = 0;                 /* 0: the real clock */
    long nanoseconds = 0;           /* beside now */
    std::vector<unsigned> sleeps;   /* what sleep() was asked for; it returns at once */
    std::vector<std::string> calls; /* "call path" in order */
    long long short_write = -1;     /* write and pwrite take at most so many bytes, -1 all */
};

#endif
