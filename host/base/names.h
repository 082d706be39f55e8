/* List names, domains, and the addresses under which a list is reached. */
#ifndef HOST_BASE_NAMES_H
#define HOST_BASE_NAMES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/* What a list's address asks for. */
enum class Role {
    post,    /* LIST@DOMAIN */
    control, /* LIST-ctl@DOMAIN and the other configured suffixes */
    owner    /* owner-LIST@DOMAIN, LIST-owner@DOMAIN */
};

/* A list's address taken apart; both names are valid and in lower case. */
struct ListAddress {
    Role role = Role::post;
    std::string list;
    std::string domain;

    bool operator==(const ListAddress &) const = default;
    /* LIST@DOMAIN, whatever the role. */
    [[nodiscard]] std::string name() const { return list + "@" + domain; }
    /* owner-LIST@DOMAIN. */
    [[nodiscard]] std::string owner() const { return "owner-" + name(); }
};

/* The longest names: the module refuses list names above 32 characters, and takes every posting of
   a list for a loop when list and domain have 192 or more together. */
constexpr size_t LIST_NAME_MAX = 32;
constexpr size_t DOMAIN_MAX = 159;

/* Letters (already in lower case), digits and the other characters of an unquoted local part, dots
   only between others, at most LIST_NAME_MAX; so never "", ".", ".." nor anything with "/" or a
   control character.  A name that begins with "owner-" or ends in "-owner" or in a control suffix
   is not one: it would shadow another list's address. */
bool valid_list_name(std::string_view name, const std::vector<std::string> &control_suffixes);

/* A host name in lower case: labels of letters, digits, "-" and "_" between single dots, at most
   DOMAIN_MAX characters. */
bool valid_domain(std::string_view domain);

/* Takes LOCAL@DOMAIN apart, in any case of letters.  Nothing when it cannot be a list's address;
   whether the list exists is not asked. */
std::optional<ListAddress> parse_list_address(std::string_view address,
                                              const std::vector<std::string> &control_suffixes);

/* A bare mailbox address that mail can be sent to: an unquoted local part (or a quoted one without
   quotes and backslashes inside), "@", a domain or an address literal; ASCII, no blanks outside
   quotes, no controls, at most 254 characters. */
bool valid_mailbox(std::string_view address);

/* LIST@DOMAIN in lower case; nothing when it is none (an owner or control address included). */
std::optional<ListAddress> parse_list_name(std::string_view address,
                                           const std::vector<std::string> &control_suffixes);

#endif
