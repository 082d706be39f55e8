/* What verbs answer, and how it is shown: lines for people, or JSON. */
#ifndef HOST_MLISTCTL_OUTPUT_H
#define HOST_MLISTCTL_OUTPUT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/mlistctl/failure.h"

struct ListSummary {
    std::string address;
    std::vector<std::pair<std::string, std::string>> settings;
    size_t members_on = 0, members_off = 0, members_digest = 0;
    size_t messages = 0;
    uint32_t next_number = 0;
    uint32_t uid_validity = 0;
    std::string archive_fault; /* "" when the archive can be read */
};

struct CheckProblem {
    std::string problem;
    std::string advice;
};

struct CheckReport {
    std::string address;
    std::vector<CheckProblem> problems;
    std::vector<std::string> repaired;
};

struct MemberChange {
    std::string address;
    bool changed = false; /* else it was so already */
};

struct PendingLine {
    std::string address, expiry, id; /* expiry and id "" for a line that cannot be read */
    bool valid = false;
};

struct PostAnswer {
    std::string address;
    int code = 0;
    std::string text;
};

class Output
{
  public:
    explicit Output(bool json) : json_(json) {}

    void created(const std::string &address) const;
    void summaries(const std::vector<ListSummary> &lists, bool one) const;
    void checked(const std::vector<CheckReport> &reports) const;
    void member_changes(const std::vector<MemberChange> &changes, std::string_view done,
                        std::string_view not_done) const;
    void entry_changes(const std::vector<MemberChange> &changes, std::string_view done,
                       std::string_view not_done) const;
    void entries(const std::vector<std::string> &entries) const;
    void pending(const std::vector<PendingLine> &lines) const;
    void cleaned(const std::string &address, size_t removed) const;
    void pushed(const std::string &address) const;

    /* For people only, to standard error: what a change means that they may not have meant. */
    void note(const char *text) const;
    void posted(const PostAnswer &answer) const;

    /* A roster of any length: begin, each member as it comes, end. */
    void begin_members() const;
    void member(std::string_view address, int status);
    void end_members() const;

    /* Everything must have reached standard output; throws otherwise. */
    static void flush();

    /* To standard error, in JSON to standard output. */
    void failure(const Failure &failure) const;

  private:
    bool json_;
    bool first_member_ = true;
};

#endif
