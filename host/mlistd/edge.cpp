#include "host/mlistd/edge.h"

#include "host/base/text.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lists.h"
#include "host/mlistd/spool/envelope.h"

static constexpr std::string_view DAEMON = "MAILER-DAEMON";

/* -- who a mail says it is from -- */

/* Without comments, as the module leaves them out: in a comment the slash escapes a bracket. */
static std::string without_comments(std::string_view text)
{
    std::string out;
    int depth = 0;
    bool quoted = false;
    char before = '\0';
    for (const char c : text) {
        const bool bracket = (c == '(' || c == ')') && !quoted && !(depth > 0 && before == '/');
        if (bracket && c == '(') ++depth;
        if (depth == 0 && c == '"') quoted = !quoted;
        if (depth == 0) out += c;
        if (bracket && c == ')' && depth > 0) --depth;
        before = c;
    }
    return out;
}

/* Whether something in the value that may be where an address starts begins so.  Quotes and lists
   of addresses can hide from one reader what another one finds, so every place counts. */
static bool names_address(std::string_view from, std::string_view beginning)
{
    bool at_start = true;
    for (size_t i = 0; i < from.size(); ++i) {
        const char c = from[i];
        if (c == ' ' || c == '\t') continue;
        if (std::string_view("<,;:\"()").find(c) != std::string_view::npos) {
            at_start = true;
            continue;
        }
        if (at_start && begins_nocase(from.substr(i), beginning)) return true;
        at_start = false;
    }
    return false;
}

static bool claims(const std::string &from, std::string_view beginning)
{
    return names_address(from, beginning) || names_address(without_comments(from), beginning);
}

bool claims_to_be_owner(const std::string &from, const std::string &list)
{
    return claims(from, "owner-" + list);
}

bool claims_to_be_daemon(const std::string &from)
{
    return claims(from, DAEMON);
}

std::string who_asks(const std::string &from)
{
    const std::string text = without_comments(from);
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') quoted = !quoted;
        if (text[i] != '<' || quoted) continue;
        const size_t end = text.find('>', i);
        if (end == text.npos) break;
        return text.substr(i + 1, end - i - 1);
    }
    return std::string(trim(text));
}

bool is_automatic(const HeaderFacts &facts)
{
    const std::string_view submitted = facts.auto_submitted;
    const std::string_view word = trim(submitted.substr(0, submitted.find_first_of(";( \t")));
    if (!word.empty() && !same_nocase(word, "no")) return true;
    return same_nocase(facts.precedence, "junk") || same_nocase(facts.precedence, "bulk");
}

static bool from_daemon(const std::string &sender)
{
    return sender.empty() || begins_nocase(sender, std::string(DAEMON) + "@");
}

/* -- what the module's answer stands for -- */

/* Outcomes of exit code 69 that say more than "refused", by their number. */
static constexpr struct {
    std::string_view number;
    int code;
    const char *status;
} refusals[] = {
    {"502", 451, "4.3.0"}, /* the machine's fault, not the mail's: the lock */
    {"506", 451, "4.3.0"}, /* the journal */
    {"508", 451, "4.3.0"}, /* the message file */
    {"511", 451, "4.3.0"}, /* who may post */
    {"517", 451, "4.3.0"}, /* the top banner */
    {"521", 451, "4.3.0"}, /* the roster */
    {"523", 451, "4.3.0"}, /* a command's files, or its reply */
    {"525", 451, "4.3.0"}, /* reading the message */
    {"526", 451, "4.3.0"}, /* the bottom banner */
    {"527", 451, "4.3.0"}, /* the reply to no command */
    {"529", 451, "4.3.0"}, /* the same */
    {"530", 451, "4.3.0"}, /* the denial notice */
    {"531", 451, "4.3.0"}, /* queueing it */
    {"532", 451, "4.3.0"}, /* the digest status */
    {"534", 451, "4.3.0"}, /* the archive */
    {"536", 451, "4.3.0"}, /* the journal's new name */
    {"509", 550, "5.6.0"}, /* header line too long */
    {"510", 550, "5.4.6"}, /* loop */
    {"518", 550, "5.7.1"}, /* refused header */
    {"522", 550, "5.6.0"}, /* command line too long */
    {"528", 550, "5.6.0"}, /* no end of header */
};

Reply reply_for(const ModuleAnswer &answer)
{
    const std::string text = one_line(answer.reply_text);
    if (answer.exit_code == MLIST_EXIT_ACCEPTED)
        return {250, "2.0.0",
                "accepted" +
                    (answer.result_text.empty() ? "" : ", " + one_line(answer.result_text))};
    if (answer.exit_code != MLIST_EXIT_REFUSED)
        return {451, "4.3.0", text.empty() ? "try again later" : text};
    for (const auto &row : refusals)
        if (text.starts_with(row.number)) return {row.code, row.status, text};
    return {550, "5.3.0", text.empty() ? "refused" : text};
}

/* -- the edge -- */

Reply Edge::check_recipient(const ListAddress &recipient, const std::string &sender)
{
    const auto exists = look_for_list(host_.settings, recipient);
    if (!exists) return {451, "4.3.0", "the list cannot be looked at, try again later"};
    if (!*exists) return {550, "5.1.1", "no such list"};
    if (recipient.role == Role::owner) {
        if (owners_of(host_.settings, recipient).empty())
            return {550, "5.1.1", "the list has no owner"};
    } else if (from_daemon(sender)) {
        return {550, "5.7.1", "lists take no bounces"};
    }
    return {250, "2.1.5", "recipient ok"};
}

Reply Edge::deliver(const ListAddress &recipient, const IncomingMail &mail)
{
    Reply reply = decide(recipient, mail);
    static const char *const roles[] = {"post", "control", "owner"};
    log_notice(LOG_DELIVERED, recipient.name() + " " + roles[static_cast<int>(recipient.role)] +
                                  " from=<" + mail.sender + "> size=" + std::to_string(mail.size) +
                                  " " + std::to_string(reply.code) + " " + reply.text);
    return reply;
}

Reply Edge::decide(const ListAddress &recipient, const IncomingMail &mail)
{
    /* The list may have gone since its address was checked, and the module would make it anew. */
    Reply still = check_recipient(recipient, mail.sender);
    if (!still.accepted()) return still;
    if (recipient.role == Role::owner) return forward_to_owners(recipient, mail);
    if (claims_to_be_daemon(mail.facts.from)) return {550, "5.7.1", "lists take no bounces"};
    if (recipient.role == Role::control) {
        if (claims_to_be_owner(mail.facts.from, recipient.list))
            return {550, "5.7.1", "the owner's address gives no commands"};
        if (is_automatic(mail.facts)) return {250, "2.0.0", "automatic mail, no commands taken"};
        /* The module would put anything on the roster, where a blank ends an address: "a@x on"
           would join again with every command, and a@x would get the list's mail. */
        if (!usable_address(who_asks(mail.facts.from)))
            return {550, "5.1.7", "the From line has no address that can be answered"};
    }
    return hand_to_module(recipient, mail.file);
}

/* The envelope sender stays who it was: a bounce (no sender) must not cause another one. */
Reply Edge::forward_to_owners(const ListAddress &recipient, const IncomingMail &mail)
{
    const auto owners = owners_of(host_.settings, recipient);
    const auto queued = host_.queue(mail.file, mail.sender, owners, recipient.name());
    if (queued) return {250, "2.0.0", "forwarded to the owners"};
    log_error(LOG_SUBMIT, recipient.name() + ": not queued: " + queued.error().text);
    return {451, "4.3.0", "try again later"};
}

Reply Edge::hand_to_module(const ListAddress &recipient, const std::string &file)
{
    const auto answer =
        deliver_own(recipient, file, std::chrono::seconds(host_.settings.lmtp_list_wait));
    if (!answer) return {451, "4.3.2", "the list is busy, try again later"};
    return reply_for(*answer);
}

std::optional<ModuleAnswer> Edge::deliver_own(const ListAddress &recipient, const std::string &file,
                                              std::chrono::milliseconds patience)
{
    const auto pass = gate_.enter(recipient.name(), patience);
    if (!pass) return std::nullopt;
    if (!order_.in_order(recipient))
        return ModuleAnswer{MLIST_EXIT_LATER, "the list's files are not in order", ""};
    ModuleAnswer answer = run_module(host_, recipient, file);
    /* Somebody who leaves is told so even where "active" could not follow. */
    if (recipient.role == Role::control || reply_for(answer).code == 451) order_.doubt(recipient);
    if (answer.exit_code != MLIST_EXIT_ACCEPTED)
        log_warning(LOG_MODULE, recipient.name() + ": exit " + std::to_string(answer.exit_code) +
                                    " " + one_line(answer.reply_text));
    return answer;
}
