#include "host/mlistctl/output.h"

#include <cstdio>
#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

/* Texts may come from files in any character set: what is not UTF-8 is replaced, never thrown at.
 */
static std::string dump(const Json &value, int indent)
{
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

static void print_json(const Json &value)
{
    printf("%s\n", dump(value, 2).c_str());
}

/* One line for people: a control character from a file must not reach the terminal. */
static std::string shown(std::string_view text)
{
    std::string result(text);
    for (char &byte : result)
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f) byte = '?';
    return result;
}

static const char *status_word(int status)
{
    static constexpr const char *words[] = {"unknown", "on", "off", "digest"};
    return status >= 1 && status <= 3 ? words[status] : words[0];
}

void Output::created(const std::string &address) const
{
    if (json_)
        print_json({{"list", address}, {"created", true}});
    else
        printf("created %s\n", address.c_str());
}

static Json summary_json(const ListSummary &list)
{
    Json settings = Json::object();
    for (const auto &[key, value] : list.settings)
        settings[key] = value;
    Json archive = {{"messages", list.messages},
                    {"next_number", list.next_number},
                    {"uid_validity", list.uid_validity}};
    if (!list.archive_fault.empty()) archive = {{"fault", list.archive_fault}};
    return {{"list", list.address},
            {"members",
             {{"on", list.members_on}, {"off", list.members_off}, {"digest", list.members_digest}}},
            {"archive", archive},
            {"settings", settings}};
}

static void print_summary(const ListSummary &list)
{
    printf("%s\n", list.address.c_str());
    printf("  members     %zu on, %zu off, %zu digest\n", list.members_on, list.members_off,
           list.members_digest);
    if (list.archive_fault.empty())
        printf("  archive     %zu messages, next number %u\n", list.messages, list.next_number);
    else
        printf("  archive     %s\n", shown(list.archive_fault).c_str());
    for (const auto &[key, value] : list.settings)
        printf("  %-11s %s\n", key.c_str(), shown(value).c_str());
}

void Output::summaries(const std::vector<ListSummary> &lists, bool one) const
{
    Json all = Json::array();
    for (const ListSummary &list : lists) {
        if (json_)
            all.push_back(summary_json(list));
        else
            print_summary(list);
    }
    if (json_) print_json(one ? all[0] : all);
}

static Json report_json(const CheckReport &report)
{
    Json problems = Json::array();
    for (const CheckProblem &problem : report.problems)
        problems.push_back({{"problem", problem.problem}, {"advice", problem.advice}});
    return {{"list", report.address},
            {"ok", report.problems.empty()},
            {"problems", problems},
            {"repaired", report.repaired}};
}

static void print_report(const CheckReport &report)
{
    for (const std::string &text : report.repaired)
        printf("%s: repaired: %s\n", report.address.c_str(), shown(text).c_str());
    if (report.problems.empty()) printf("%s: in order\n", report.address.c_str());
    for (const CheckProblem &problem : report.problems) {
        printf("%s: %s\n", report.address.c_str(), shown(problem.problem).c_str());
        printf("    %s\n", shown(problem.advice).c_str());
    }
}

void Output::checked(const std::vector<CheckReport> &reports) const
{
    Json all = Json::array();
    for (const CheckReport &report : reports) {
        if (json_)
            all.push_back(report_json(report));
        else
            print_report(report);
    }
    if (json_) print_json(all);
}

static void show_changes(bool json, const char *key, const std::vector<MemberChange> &changes,
                         std::string_view done, std::string_view not_done)
{
    Json all = Json::array();
    for (const MemberChange &change : changes) {
        if (json) {
            all.push_back({{key, change.address}, {"changed", change.changed}});
            continue;
        }
        std::string_view what = change.changed ? done : not_done;
        printf("%s %.*s\n", shown(change.address).c_str(), static_cast<int>(what.size()),
               what.data());
    }
    if (json) print_json(all);
}

void Output::member_changes(const std::vector<MemberChange> &changes, std::string_view done,
                            std::string_view not_done) const
{
    show_changes(json_, "address", changes, done, not_done);
}

void Output::entry_changes(const std::vector<MemberChange> &changes, std::string_view done,
                           std::string_view not_done) const
{
    show_changes(json_, "entry", changes, done, not_done);
}

void Output::entries(const std::vector<std::string> &entries) const
{
    if (json_) return print_json(Json(entries));
    for (const std::string &entry : entries)
        printf("%s\n", shown(entry).c_str());
}

void Output::pending(const std::vector<PendingLine> &lines) const
{
    Json all = Json::array();
    for (const PendingLine &line : lines) {
        if (json_)
            all.push_back({{"address", line.address},
                           {"expires", line.expiry},
                           {"id", line.id},
                           {"valid", line.valid}});
        else if (line.id.empty())
            printf("%s unreadable\n", shown(line.address).c_str());
        else
            printf("%s %s %s %s\n", shown(line.address).c_str(), shown(line.id).c_str(),
                   line.valid ? "until" : "expired", line.expiry.c_str());
    }
    if (json_) print_json(all);
}

void Output::cleaned(const std::string &address, size_t removed) const
{
    if (json_)
        print_json({{"list", address}, {"removed", removed}});
    else
        printf("%zu removed\n", removed);
}

void Output::pushed(const std::string &address) const
{
    if (json_)
        print_json({{"list", address}, {"pushed", true}});
    else
        printf("%s: digest pushed\n", address.c_str());
}

void Output::note(const char *text) const
{
    if (!json_) fprintf(stderr, "note: %s\n", text);
}

void Output::posted(const PostAnswer &answer) const
{
    if (json_)
        print_json({{"list", answer.address}, {"code", answer.code}, {"answer", answer.text}});
    else
        printf("%s: %d %s\n", answer.address.c_str(), answer.code, shown(answer.text).c_str());
}

void Output::begin_members() const
{
    if (json_) fputs("[", stdout);
}

void Output::member(std::string_view address, int status)
{
    if (json_) {
        Json entry = {{"address", address}, {"status", status_word(status)}};
        printf("%s\n  %s", first_member_ ? "" : ",", dump(entry, -1).c_str());
    } else {
        printf("%s %s\n", shown(address).c_str(), status_word(status));
    }
    first_member_ = false;
}

void Output::end_members() const
{
    if (json_) fputs(first_member_ ? "]\n" : "\n]\n", stdout);
}

void Output::flush()
{
    if (fflush(stdout) != 0 || ferror(stdout))
        throw Failure{CTL_IO, errno_text("cannot write to standard output"), ""};
}

void Output::failure(const Failure &failure) const
{
    if (json_) {
        print_json({{"error", failure.problem},
                    {"advice", failure.advice},
                    {"exit_status", failure.exit_status}});
        return;
    }
    fprintf(stderr, "mlistctl: %s\n", failure.problem.c_str());
    if (!failure.advice.empty()) fprintf(stderr, "  %s\n", failure.advice.c_str());
}
