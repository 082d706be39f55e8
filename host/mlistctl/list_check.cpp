/* list check: what is wrong with a list's files, and what to run; --repair puts right what can be
   put right without losing anything. */
#include "host/mlistctl/address.h"
#include "host/mlistctl/archive_index.h"
#include "host/mlistctl/paths.h"
#include "host/mlistctl/roster_text.h"
#include "host/mlistctl/session.h"
#include "host/mlistctl/settings_text.h"
#include "host/mlistctl/verbs.h"

#include <filesystem>
#include <sys/stat.h>

#include "mlist/archive.h"
#include "mlist/mlist.h"

namespace
{

constexpr const char *control_files[] = {"digest",  "active",  "member", "status",
                                         "dgtstat", "confirm", "grant",  "subscribe"};

struct Checker {
    const Session &session;
    CheckReport &report;

    [[nodiscard]] const ListAddress &address() const { return session.address(); }
    [[nodiscard]] std::string repair_advice() const
    {
        return "run: mlistctl list check --repair " + address().name();
    }
    void found(const std::string &problem, const std::string &advice) const
    {
        report.problems.push_back({problem, advice});
    }
};

bool is_regular(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool is_directory(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/* A replacement that was cut short: the module finishes or discards it at its next access. */
void recover_files(const Checker &check)
{
    for (const char *name :
         {"init", "member", "active", "digest", "grant", "subscribe", "confirm", "dgtstat"})
        if (f_recover(control_file(check.address(), name).c_str()) != 0)
            check.found(std::string("an unfinished change of \"") + name + "\" cannot be finished",
                        "look at the disk's free room and at the permissions of " +
                            control_file(check.address()));
}

void check_files(const Checker &check)
{
    for (const char *name : {"msg", "jnl"})
        if (!is_directory(control_file(check.address(), name)))
            check.found(std::string("the directory \"") + name + "\" is missing",
                        check.repair_advice());
    for (const char *name : control_files)
        if (!is_regular(control_file(check.address(), name)))
            check.found(std::string("the file \"") + name + "\" is missing", check.repair_advice());
}

void check_init(const Checker &check)
{
    std::string path = control_file(check.address(), "init");
    for (const std::string &fault : init_faults(read_whole(path)))
        check.found("in \"init\": " + fault, "edit " + path);
}

void check_roster(const Checker &check)
{
    std::string path = control_file(check.address(), "member");
    if (!is_regular(path)) return;
    Roster roster = read_roster(read_whole(path));
    for (const std::string &fault : roster.faults)
        check.found("in \"member\": " + fault, "edit " + path + " while no mail is delivered");
    for (const auto &[name, expected] :
         {std::pair{"active", &roster.active}, std::pair{"digest", &roster.digest}}) {
        std::string derived = control_file(check.address(), name);
        if (is_regular(derived) && read_whole(derived) != *expected)
            check.found(std::string("\"") + name + "\" is not what the members give",
                        check.repair_advice());
    }
}

void check_archive(const Checker &check)
{
    for (const std::string &fault : archive_faults(archive_directory(check.address())))
        check.found(fault, "run: mlistctl list check --repair --archive " + check.address().name() +
                               " (makes the index anew: flags are lost, mail programs fetch all "
                               "again)");
}

/* A numbered journal is a posting that was archived but not handed out. */
void check_journal(const Checker &check)
{
    std::error_code error;
    for (const auto &entry :
         std::filesystem::directory_iterator(control_file(check.address(), "jnl"), error)) {
        std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos)
            check.found("a posting was archived but not distributed, jnl/" + name,
                        "see the log of that time; remove the file when it has been dealt with");
    }
}

void repair_files(const Session &session, CheckReport &report)
{
    std::string missing;
    for (const char *name : control_files)
        if (!is_regular(control_file(session.address(), name))) missing += std::string(" ") + name;
    for (const char *name : {"msg", "jnl"})
        if (!is_directory(control_file(session.address(), name)))
            missing += std::string(" ") + name;
    if (missing.empty()) return;
    if (mlist_session_check_files(session.get()) != 0)
        fail_in_module("cannot make the missing files of " + session.address().name());
    for (const char *name : control_files)
        make_empty_file(control_file(session.address(), name));
    report.repaired.push_back("made empty:" + missing);
}

void repair_derived(const Session &session, CheckReport &report)
{
    for (const char *name : {"active", "digest"}) {
        int result = mlist_derive(session.get(), name);
        if (result < 0)
            fail_in_module(std::string("cannot rewrite \"") + name + "\" of " +
                           session.address().name());
        if (result == 1)
            report.repaired.push_back(std::string("\"") + name + "\" rewritten from the members");
    }
}

void repair_archive(const Session &session, CheckReport &report)
{
    std::string archive = archive_directory(session.address());
    if (archive_faults(archive).empty()) return;
    make_directories(box_directory(session.address()));
    if (!is_directory(archive)) {
        if (mlmbx_create(archive.c_str()) != 1)
            fail_in_module("cannot make the archive " + archive);
        report.repaired.push_back("the archive made anew, empty");
        return;
    }
    if (list_mbx_rebuild(archive.c_str()) != 0) fail_in_module("cannot rebuild " + archive);
    report.repaired.push_back("the archive's index made anew");
}

CheckReport check_list(const ListAddress &address, const Arguments &arguments)
{
    CheckReport report;
    report.address = address.name();
    Session session(address);
    if (arguments.repair) {
        repair_files(session, report);
        repair_derived(session, report);
    }
    if (arguments.repair_archive) repair_archive(session, report);

    Checker check{session, report};
    recover_files(check);
    check_files(check);
    check_init(check);
    check_roster(check);
    check_archive(check);
    check_journal(check);
    return report;
}

} // namespace

int list_check(const Arguments &arguments, const Settings &settings, Output &output)
{
    std::vector<CheckReport> reports;
    if (arguments.list.empty()) {
        for (const ListAddress &address : all_lists())
            reports.push_back(check_list(address, arguments));
    } else {
        ListAddress address = read_list_address(arguments.list, settings.control_suffixes);
        require_list(address);
        reports.push_back(check_list(address, arguments));
    }
    output.checked(reports);
    for (const CheckReport &report : reports)
        if (!report.problems.empty()) return CTL_FAILED;
    return CTL_OK;
}
