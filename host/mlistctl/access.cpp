/* grant and subscribe-domain: add, remove, list. */
#include "host/mlistctl/operands.h"
#include "host/mlistctl/session.h"

#include <algorithm>

#include "host/base/text.h"

namespace
{

/* The two access lists differ in what an entry is and in what an empty file means. */
struct AccessList {
    const char *file;
    const char *what; /* an entry, in messages */
    const char *(*fault_of)(const std::string &text);
    const char *closes;
    const char *opens;
};

const char *grant_fault(const std::string &text)
{
    if (text.starts_with('*')) return "addresses have no patterns";
    return member_address_fault(text);
}

const char *domain_fault(const std::string &text)
{
    const bool pattern = text.starts_with('*');
    const std::string name = lower(pattern ? text.substr(1) : text);
    if (pattern && name.empty()) return "an asterisk alone admits nobody";
    if (name.find('@') != std::string::npos) return "it is an address; write its domain";
    if (pattern && name.starts_with('.'))
        return valid_domain(name.substr(1)) ? nullptr : "no domain can end so";
    return valid_domain(name) ? nullptr : "it is neither a domain nor \"*\" with a domain's end";
}

constexpr AccessList grant_list = {
    "grant", "an address to post from", grant_fault,
    "from now on only the granted addresses may post; members that are not among them may not",
    "no granted address is left: every member may post"};
constexpr AccessList subscribe_list = {"subscribe", "a domain to subscribe from", domain_fault,
                                       "from now on only senders of these domains may subscribe",
                                       "no domain is left: everybody may subscribe"};

std::vector<std::string> entries_of(const Session &session, const AccessList &access)
{
    std::vector<std::string> entries;
    const auto keep = [](const char *text, void *argument) {
        static_cast<std::vector<std::string> *>(argument)->emplace_back(text);
        return 0;
    };
    if (mlist_access_each(session.get(), access.file, keep, &entries) != 0)
        fail_in_module(std::string("cannot read \"") + access.file + "\" of " +
                       session.address().name());
    return entries;
}

using AccessOperation = int (*)(ListSession *session, const char *file, const char *text);

std::vector<MemberChange> change_entries(const Session &session, const AccessList &access,
                                         const std::vector<std::string> &words,
                                         AccessOperation operation)
{
    std::vector<MemberChange> changes;
    for (const std::string &word : words) {
        const int result = operation(session.get(), access.file, word.c_str());
        if (result < 0)
            fail_in_module("'" + word + "' could not be changed in " + session.address().name() +
                           " after " + std::to_string(changes.size()) + " others " +
                           mlist_session_reply(session.get()));
        changes.push_back({word, result == 1});
    }
    return changes;
}

/* What is easily overlooked: the first entry shuts others out, the last one lets them in. */
void tell_turn(const AccessList &access, size_t before, size_t after, const Output &output)
{
    if (before == 0 && after > 0) output.note(access.closes);
    if (before > 0 && after == 0) output.note(access.opens);
}

int add_entries(const AccessList &access, const Arguments &arguments, const Settings &settings,
                const Output &output)
{
    const ListAddress list = existing_list(arguments, settings);
    const auto words = read_words(arguments);
    refuse_bad_words(words, access.fault_of, access.what, "nothing was added");
    const Session session(list);
    const size_t before = entries_of(session, access).size();
    const auto changes = change_entries(session, access, words, mlist_access_add);
    output.entry_changes(changes, "added", "is there already");
    tell_turn(access, before, entries_of(session, access).size(), output);
    return CTL_OK;
}

int remove_entries(const AccessList &access, const Arguments &arguments, const Settings &settings,
                   const Output &output)
{
    const ListAddress list = existing_list(arguments, settings);
    const auto words = read_words(arguments);
    const Session session(list);
    const size_t before = entries_of(session, access).size();
    const auto changes = change_entries(session, access, words, mlist_access_remove);
    output.entry_changes(changes, "removed", "is not there");
    tell_turn(access, before, entries_of(session, access).size(), output);
    const bool all = std::all_of(changes.begin(), changes.end(),
                                 [](const MemberChange &change) { return change.changed; });
    return all ? CTL_OK : CTL_FAILED;
}

/* The lock is free again before the first line is written. */
int list_entries(const AccessList &access, const Arguments &arguments, const Settings &settings,
                 const Output &output)
{
    const ListAddress list = existing_list(arguments, settings);
    output.entries(entries_of(Session(list), access));
    return CTL_OK;
}

} // namespace

int grant_add(const Arguments &arguments, const Settings &settings, Output &output)
{
    return add_entries(grant_list, arguments, settings, output);
}

int grant_remove(const Arguments &arguments, const Settings &settings, Output &output)
{
    return remove_entries(grant_list, arguments, settings, output);
}

int grant_show(const Arguments &arguments, const Settings &settings, Output &output)
{
    return list_entries(grant_list, arguments, settings, output);
}

int domain_add(const Arguments &arguments, const Settings &settings, Output &output)
{
    return add_entries(subscribe_list, arguments, settings, output);
}

int domain_remove(const Arguments &arguments, const Settings &settings, Output &output)
{
    return remove_entries(subscribe_list, arguments, settings, output);
}

int domain_show(const Arguments &arguments, const Settings &settings, Output &output)
{
    return list_entries(subscribe_list, arguments, settings, output);
}
