/* Disturbing the rewrite of a list's files at every one of its changing calls. */
#ifndef TESTS_UNIT_STORE_CONTROL_FAULT_H
#define TESTS_UNIT_STORE_CONTROL_FAULT_H

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mlist/mlist.h"
#include "store/file.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"
#include "tests/support/without_sync.h"
#include "tests/unit/store/store_test.h"

/* Log lines of level and number, the list's paths shortened to "CTL/name". */
inline std::vector<std::string> log_of(const TempList &list)
{
    std::vector<std::string> lines;
    for (const LogLine &line : take_log()) {
        if (line.text.find("set code [") == 0) continue;
        std::string text = line.text;
        const std::string root = list.control();
        for (size_t at; (at = text.find(root)) != std::string::npos;)
            text.replace(at, root.size(), "CTL");
        lines.push_back(std::to_string(line.level) + "/" + std::to_string(line.msgno) + " " + text);
    }
    return lines;
}

inline bool has_line(const std::vector<std::string> &lines, const std::string &line)
{
    for (const std::string &candidate : lines)
        if (candidate == line) return true;
    return false;
}

inline std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += "  " + line + "\n";
    return text;
}

/* The call of that name whose turn it is (0-based) among those on a path that ends so (calls on a
   descriptor have none) fails. */
inline std::function<int(const std::string &, const std::string &)>
fail_call(const std::string &name, const std::string &ending, int turn, int error)
{
    return [=, count = 0](const std::string &call, const std::string &path) mutable {
        if (call != name || !path.ends_with(ending)) return 0;
        return count++ == turn ? error : 0;
    };
}

/* From the n-th write on the disk is full, for everything but removals. */
inline std::function<int(const std::string &, const std::string &)> full_disk_after(int writes)
{
    return [=, count = 0](const std::string &call, const std::string &) mutable {
        if (call != "write" && call != "pwrite") return 0;
        return count++ >= writes ? ENOSPC : 0;
    };
}

struct ControlState {
    std::vector<std::pair<std::string, std::string>> files; /* name, content */
};

inline bool operator==(const ControlState &left, const ControlState &right)
{
    return left.files == right.files;
}

inline ControlState state_of(const TempList &list, const std::vector<std::string> &names)
{
    ControlState state;
    for (const std::string &name : names)
        state.files.emplace_back(name, list.get(name));
    return state;
}

/* The named files after recovery, which must leave nothing beside them. */
inline ControlState recovered(const TempList &list, const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        EXPECT_EQ(0, f_recover(list.control(name).c_str())) << name;
        EXPECT_FALSE(exists(list.control(name + ".new"))) << name;
    }
    return state_of(list, names);
}

/* What an undisturbed run on a fresh list finds and leaves. */
struct BeforeAndAfter {
    BeforeAndAfter(const std::vector<std::string> &names,
                   const std::function<void(TempList &)> &prepare,
                   const std::function<int(TempList &)> &run)
    {
        TempList list;
        prepare(list);
        before = state_of(list, names);
        EXPECT_GE(run(list), 0);
        after = state_of(list, names);
    }
    ControlState before, after;
};

inline void expect_old_or_new(const ControlState &found, const ControlState &before,
                              const ControlState &after, int nth)
{
    for (size_t i = 0; i < found.files.size(); ++i)
        EXPECT_TRUE(found.files[i] == before.files[i] || found.files[i] == after.files[i])
            << found.files[i].first << " is neither old nor new after change " << nth << ":\n"
            << found.files[i].second;
}

/* Runs an operation on fresh lists, disturbed at its first, second, ... changing call by the error
   (-1: the process dies there), until a run is left in peace.  After recovery each of the named
   files must be as it was or as the undisturbed run leaves it, and a run that reports success must
   have left the latter. */
inline void survive_every_change(const std::vector<std::string> &names,
                                 const std::function<void(TempList &)> &prepare,
                                 const std::function<int(TempList &)> &run)
{
    WithoutSync quick; /* the process dies, not the machine */
    const auto [before, after] = BeforeAndAfter(names, prepare, run);
    int disturbed_runs = 0;
    for (const int error : {ENOSPC, EIO, -1}) {
        std::unique_ptr<TempList> list;
        disturbed_runs += disturb_every_change(
            error,
            [&] {
                list = std::make_unique<TempList>();
                prepare(*list);
            },
            [&] { return run(*list); },
            [&](int nth, int answer) {
                const ControlState found = recovered(*list, names);
                expect_old_or_new(found, before, after, nth);
                EXPECT_TRUE(answer < 0 || found == after) << "change " << nth << " error " << error;
            });
    }
    EXPECT_GT(disturbed_runs, 10);
    (void)take_log();
}

/* The same with a disk that is full from the n-th write on and has room again at recovery. */
inline void survive_full_disk(const std::vector<std::string> &names,
                              const std::function<void(TempList &)> &prepare,
                              const std::function<int(TempList &)> &run)
{
    WithoutSync quick; /* the process dies, not the machine */
    const auto [before, after] = BeforeAndAfter(names, prepare, run);
    bool was_full = true;
    for (int writes = 0; was_full; ++writes) {
        TempList list;
        prepare(list);
        {
            FaultOs faults;
            was_full = false;
            faults.before = [&, count = 0](const std::string &call, const std::string &) mutable {
                if (call != "write" && call != "pwrite") return 0;
                was_full = was_full || count >= writes;
                return count++ >= writes ? ENOSPC : 0;
            };
            (void)run(list);
            /* A second delivery meets the same full disk. */
            (void)f_recover(list.control(names[0]).c_str());
        }
        const ControlState found = recovered(list, names);
        expect_old_or_new(found, before, after, writes);
    }
    (void)take_log();
}

/* The line of the address as get_member() hands it out, "" for a stranger. */
inline std::string found_line(TempList &list, const std::string &address)
{
    char line[LINE_SIZE];
    memset(line, 'x', sizeof(line));
    EXPECT_EQ(0, get_member(list.job(), address.c_str(), line));
    return line;
}

#endif
