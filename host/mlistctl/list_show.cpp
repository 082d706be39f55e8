/* list show: settings in force, members and archive of one list or of all. */
#include "host/mlistctl/address.h"
#include "host/mlistctl/archive_index.h"
#include "host/mlistctl/paths.h"
#include "host/mlistctl/session.h"
#include "host/mlistctl/verbs.h"

#include "mlist/mlist.h"

static std::string command_words(uint32_t mask)
{
    std::string words;
    for (int command = 0; command < COMMAND_PUSH; command++) {
        if (command > 0) words += ' ';
        words += mask & COMMAND_BIT(command) ? "on" : "off";
    }
    return words;
}

static std::string nonmember_word(uint32_t mask)
{
    if (mask == ALL_COMMANDS) return "grant";
    return mask == COMMAND_BIT(COMMAND_PUSH) ? "deny" : "part";
}

static std::string clock_time(int32_t minute)
{
    char text[16];
    snprintf(text, sizeof(text), "%d:%02d", minute / 60, minute % 60);
    return text;
}

static void add_settings(ListSummary &summary, const ListSettings &settings)
{
    static constexpr const char *precedences[] = {"junk", "bulk", "list"};
    static constexpr const char *reply_modes[] = {"add", "change", "no"};
    summary.settings = {
        {"cmd", command_words(settings.command_mask)},
        {"subject", settings.subject_mode == SUBJECT_EDIT ? "edit" : "noedit"},
        {"subjectf", settings.subject_format},
        {"vstrml", settings.nonmembers_may_post ? "grant" : "deny"},
        {"vstrc", nonmember_word(settings.nonmember_command_mask)},
        {"precedence", precedences[settings.precedence]},
        {"journal", std::to_string(settings.journal)},
        {"time", clock_time(settings.digest_time)},
        {"replyedit", reply_modes[settings.reply_to_mode]},
        {"replyto", settings.reply_to},
        {"defstatus", std::to_string(settings.default_status)},
        {"confirm", std::to_string(settings.confirmation)},
        {"maxsummary", std::to_string(settings.summary_limit)},
        {"maxmsgsize", std::to_string(settings.size_limit)},
        {"webpasswd", settings.web_password[0] ? "(set)" : ""},
    };
}

static int count_member(const char *, int status, void *argument)
{
    auto *summary = static_cast<ListSummary *>(argument);
    summary->members_on += status == MEMBER_ON;
    summary->members_off += status == MEMBER_OFF;
    summary->members_digest += status == MEMBER_DIGEST;
    return 0;
}

static void add_archive(ListSummary &summary, const ListAddress &address)
{
    ArchiveIndex index = read_archive_index(archive_directory(address));
    summary.archive_fault = index.fault;
    summary.messages = index.messages.size();
    summary.next_number = index.next_uid;
    summary.uid_validity = index.uid_validity;
}

static ListSummary summary_of(const ListAddress &address)
{
    ListSummary summary;
    summary.address = address.name();
    Session session(address);
    ListSettings settings = g_mlit;
    if (get_mlini(address.list.c_str(), address.domain.c_str(), &settings) != 0)
        fail_in_module("cannot read the settings of " + address.name());
    add_settings(summary, settings);
    if (mlist_member_each(session.get(), count_member, &summary) != 0)
        fail_in_module("cannot read the members of " + address.name());
    add_archive(summary, address);
    return summary;
}

int list_show(const Arguments &arguments, const Settings &settings, Output &output)
{
    std::vector<ListSummary> summaries;
    if (arguments.list.empty()) {
        for (const ListAddress &address : all_lists())
            summaries.push_back(summary_of(address));
    } else {
        ListAddress address = read_list_address(arguments.list, settings.control_suffixes);
        require_list(address);
        summaries.push_back(summary_of(address));
    }
    output.summaries(summaries, !arguments.list.empty());
    return CTL_OK;
}
