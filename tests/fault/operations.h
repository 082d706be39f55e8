/* Everything that writes, one row each: what is disturbed in turn by every fault there is. */
#ifndef TESTS_FAULT_OPERATIONS_H
#define TESTS_FAULT_OPERATIONS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fault/world.h"

enum class Subject { posting, command, archive, administration };

struct Operation {
    const char *label;
    Subject subject;
    std::vector<std::string> settings;
    std::function<Outcome(World &)> run; /* once more makes no difference, as far as lists go */
    bool banners = false;
    std::function<void(World &)> prepare = nullptr; /* undisturbed */
    bool hides_failures = false;                    /* KEPT: DelMlmbr.AnswersZeroEvenWhenItFails */
};

extern const std::vector<Operation> operations;

void PrintTo(const Operation &operation, std::ostream *out);

/* Names of the control files that an operation may change. */
extern const std::vector<const char *> control_files;

using Contents = std::vector<std::string>; /* of the control files, in that order */

/* As they lie there, or as recovery will make them. */
Contents contents_of(const World &world);
Contents recovered_contents_of(const World &world);

void expect_old_or_new(const Contents &found, const struct Effect &effect);

/* As an undisturbed run finds and leaves them. */
struct Effect {
    DiskImage image; /* before */
    World::Promises promises;
    Contents before, after;
    Outcome outcome;
    Complaints complaints; /* what the operation means to do, such as removing a message */
};
Effect undisturbed(World *world, const Operation &operation);

/* The operation is delivered again, as a sender's server does, and then a posting. */
struct Aftermath {
    Outcome retried, next;
    Contents contents; /* after the retry and the daemon's check of the list */
    Complaints complaints;
};
Aftermath carry_on(World *world, const Operation &operation);

#endif
