/* The moment from which on somebody waits for a lock that a test holds. */
#ifndef TESTS_LOCK_WAITER_H
#define TESTS_LOCK_WAITER_H

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

/* Whether the kernel lists somebody who waits for a lock of the file:
   "1: -> FLOCK ADVISORY WRITE PID DEVICE:INODE 0 EOF". */
inline bool somebody_waits_for(int lock)
{
    struct stat status = {};
    if (fstat(lock, &status) != 0) return false;
    const std::string inode = ":" + std::to_string(status.st_ino) + " ";
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);)
        if (line.find("-> ") != line.npos && line.find(inode) != line.npos) return true;
    return false;
}

/* Returns when somebody does; the test's time limit ends a wait in vain. */
inline void wait_for_a_waiter(int lock)
{
    while (!somebody_waits_for(lock))
        usleep(1000);
}

#endif
