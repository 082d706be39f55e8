/* One run of some operations on a machine whose power may fail at any moment of it. */
#ifndef TESTS_FAULT_CRASH_RUN_H
#define TESTS_FAULT_CRASH_RUN_H

#include <functional>
#include <string>
#include <vector>

#include "tests/fault/world.h"

struct CrashScenario {
    const char *label;
    std::vector<std::string> settings;
    std::vector<std::function<Outcome(World &)>> steps; /* one after the other; all succeed */
    std::function<void(World &)> prepare = nullptr;     /* what is on the disk before them */
};

struct CrashFindings {
    Complaints complaints;
    std::string first;           /* where and when the first one came up */
    std::vector<SyncCall> syncs; /* of the last step */
    int images = 0;              /* disks tried */
};

/* A sync that does nothing: the nth (0-based) of that name in each step, by short_name(). */
struct LeftOutSync {
    std::string name;
    int nth = 0;
    std::string sought; /* the complaint that ends the search */
};

/* Runs the steps, then for every moment of it and every disk that a crash may leave then: the next
   ordinary operation on that disk, and what is wrong afterwards. */
CrashFindings crash_everywhere(const CrashScenario &scenario, const LeftOutSync &left_out = {});

/* The name of a synced file as the tables have it: CTL, BOX and TID for what differs by run. */
std::string short_name(std::string name);

#endif
