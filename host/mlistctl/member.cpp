/* member add, remove, list. */
#include "host/mlistctl/address.h"
#include "host/mlistctl/paths.h"
#include "host/mlistctl/session.h"
#include "host/mlistctl/verbs.h"

#include <algorithm>
#include <iostream>

#include "host/base/text.h"

/* The lines of standard input, empty ones left out. */
static void append_standard_input(std::vector<std::string> &addresses)
{
    std::string line;
    while (std::getline(std::cin, line))
        if (std::string_view text = trim(line); !text.empty()) addresses.emplace_back(text);
    if (std::cin.bad()) throw Failure{CTL_IO, "cannot read standard input", ""};
}

static std::vector<std::string> read_addresses(const Arguments &arguments)
{
    std::vector<std::string> addresses;
    for (const std::string &word : arguments.addresses) {
        if (word == "-")
            append_standard_input(addresses);
        else
            addresses.push_back(word);
    }
    return addresses;
}

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

/* All of them before the first is added: a typing error in a long list changes nothing. */
static void refuse_bad_addresses(const std::vector<std::string> &addresses, const ListAddress &list,
                                 const Settings &settings)
{
    std::string problem;
    for (const std::string &address : addresses)
        if (const char *fault = new_member_fault(address, list, settings))
            problem += "\n  '" + one_line(address) + "': " + fault;
    if (!problem.empty())
        throw Failure{CTL_BAD_DATA, "not a member's address:" + problem,
                      "nobody was added; correct these and run it again"};
}

static ListAddress existing_list(const Arguments &arguments, const Settings &settings)
{
    ListAddress address = read_list_address(arguments.list, settings.control_suffixes);
    require_list(address);
    return address;
}

using MemberOperation = int (*)(ListSession *session, const char *address);

static std::vector<MemberChange> change_members(const ListAddress &list,
                                                const std::vector<std::string> &addresses,
                                                MemberOperation operation)
{
    std::vector<MemberChange> changes;
    Session session(list);
    for (const std::string &address : addresses) {
        int result = operation(session.get(), address.c_str());
        if (result < 0)
            fail_in_module("'" + address + "' could not be changed in " + list.name() + " after " +
                           std::to_string(changes.size()) + " others " +
                           mlist_session_reply(session.get()));
        changes.push_back({address, result == 1});
    }
    return changes;
}

int member_add(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress list = existing_list(arguments, settings);
    std::vector<std::string> addresses = read_addresses(arguments);
    refuse_bad_addresses(addresses, list, settings);
    auto changes = change_members(list, addresses, mlist_member_add);
    output.member_changes(changes, "added", "is a member already");
    return CTL_OK;
}

int member_remove(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress list = existing_list(arguments, settings);
    auto changes = change_members(list, read_addresses(arguments), mlist_member_remove);
    output.member_changes(changes, "removed", "is no member");
    bool all = std::all_of(changes.begin(), changes.end(),
                           [](const MemberChange &change) { return change.changed; });
    return all ? CTL_OK : CTL_FAILED;
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
