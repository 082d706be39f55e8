/* member add, remove, set, list. */
#include "host/mlistctl/operands.h"
#include "host/mlistctl/session.h"
#include "host/mlistctl/verbs.h"
#include "mlist/list_settings.h"

#include <algorithm>
#include <cerrno>

/* The list itself among its members would send every posting back to the list. */
static const char *new_member_fault(const std::string &address, const ListAddress &list,
                                    const Settings &settings)
{
    if (const char *fault = member_address_fault(address)) return fault;
    auto other = parse_list_address(address, settings.control_suffixes);
    if (other && other->list == list.list && other->domain == list.domain)
        return "it is an address of the list itself";
    return nullptr;
}

using MemberOperation = std::function<int(ListSession *session, const char *const *addresses,
                                          size_t count, int *results)>;

/* "active" and "digest" as the roster has it.  A run that was interrupted may have left them
   behind, and finds nothing to change the second time.  A list may do without them. */
static bool derive(ListSession *session)
{
    for (const char *type : {"active", "digest"})
        if (mlist_derive(session, type) < 0 && errno != ENOENT) return false;
    return true;
}

static std::vector<MemberChange> change_members(const ListAddress &list,
                                                const std::vector<std::string> &addresses,
                                                const MemberOperation &operation)
{
    std::vector<const char *> texts;
    texts.reserve(addresses.size());
    for (const std::string &address : addresses)
        texts.push_back(address.c_str());
    std::vector<int> results(addresses.size());

    Session session(list);
    if (operation(session.get(), texts.data(), texts.size(), results.data()) < 0 ||
        !derive(session.get()))
        fail_in_module("the members of " + list.name() + " could not be changed " +
                       mlist_session_reply(session.get()));
    std::vector<MemberChange> changes;
    changes.reserve(addresses.size());
    for (size_t i = 0; i < addresses.size(); ++i)
        changes.push_back({addresses[i], results[i] == 1});
    return changes;
}

int member_add(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress list = existing_list(arguments, settings);
    std::vector<std::string> addresses = read_words(arguments);
    refuse_bad_words(
        addresses,
        [&](const std::string &address) { return new_member_fault(address, list, settings); },
        "a member's address", "nobody was added");
    auto changes = change_members(list, addresses, mlist_member_add_many);
    output.member_changes(changes, "added", "is a member already");
    return CTL_OK;
}

static int exit_status_of(const std::vector<MemberChange> &changes)
{
    bool all = std::all_of(changes.begin(), changes.end(),
                           [](const MemberChange &change) { return change.changed; });
    return all ? CTL_OK : CTL_FAILED;
}

int member_remove(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress list = existing_list(arguments, settings);
    auto changes = change_members(list, read_words(arguments), mlist_member_remove_many);
    output.member_changes(changes, "removed", "is no member");
    return exit_status_of(changes);
}

static int status_of(const std::string &word)
{
    if (word == "on") return MEMBER_ON;
    return word == "off" ? MEMBER_OFF : MEMBER_DIGEST; /* the command line takes no other */
}

int member_set(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress list = existing_list(arguments, settings);
    const int status = status_of(arguments.status);
    auto changes = change_members(
        list, read_words(arguments),
        [status](ListSession *session, const char *const *addresses, size_t count, int *results) {
            return mlist_member_set_status_many(session, addresses, count, status, results);
        });
    output.member_changes(changes, "is " + arguments.status, "is no member");
    return exit_status_of(changes);
}

static int keep_member(const char *address, int status, void *argument)
{
    static_cast<std::vector<std::pair<std::string, int>> *>(argument)->emplace_back(address,
                                                                                    status);
    return 0;
}

/* The lock is free again before the first line is written: a pager on the other end of the pipe
   must not keep the list's mail waiting. */
int member_list(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress list = existing_list(arguments, settings);
    std::vector<std::pair<std::string, int>> members;
    {
        Session session(list);
        if (mlist_member_each(session.get(), keep_member, &members) != 0)
            fail_in_module("cannot read the members of " + list.name());
    }
    output.begin_members();
    for (const auto &[address, status] : members)
        output.member(address, status);
    output.end_members();
    return CTL_OK;
}
