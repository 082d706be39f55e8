#include "host/base/names.h"

#include <algorithm>

#include "host/base/text.h"

namespace
{

constexpr std::string_view OWNER_PREFIX = "owner-";
constexpr std::string_view OWNER_SUFFIX = "-owner";
constexpr size_t MAILBOX_MAX = 254;

/* Those of RFC 5322's atoms but "/", which no list name may have. */
bool is_atom_character(char c)
{
    return is_alnum(c) || std::string_view("!#$%&'*+-=?^_`{|}~").find(c) != std::string_view::npos;
}

/* Pieces of good characters between single dots. */
template <typename Good> bool dotted(std::string_view text, Good good)
{
    for (const std::string_view piece : split(text, '.'))
        if (piece.empty() || !std::all_of(piece.begin(), piece.end(), good)) return false;
    return true;
}

/* The name without the suffix; nothing when it does not end so. */
std::optional<std::string_view> without_suffix(std::string_view name, std::string_view suffix)
{
    if (suffix.empty() || name.size() <= suffix.size() || !name.ends_with(suffix))
        return std::nullopt;
    return name.substr(0, name.size() - suffix.size());
}

bool reserved(std::string_view name, const std::vector<std::string> &control_suffixes)
{
    if (name.starts_with(OWNER_PREFIX) || name.ends_with(OWNER_SUFFIX)) return true;
    return std::any_of(control_suffixes.begin(), control_suffixes.end(),
                       [&](const std::string &suffix) { return name.ends_with(lower(suffix)); });
}

/* Role and list name of a local part in lower case; the name is not checked yet. */
std::pair<Role, std::string_view> role_of(std::string_view local,
                                          const std::vector<std::string> &control_suffixes)
{
    if (local.starts_with(OWNER_PREFIX)) return {Role::owner, local.substr(OWNER_PREFIX.size())};
    if (const auto list = without_suffix(local, OWNER_SUFFIX)) return {Role::owner, *list};
    for (const std::string &suffix : control_suffixes)
        if (const auto list = without_suffix(local, lower(suffix))) return {Role::control, *list};
    return {Role::post, local};
}

bool valid_local_part(std::string_view local)
{
    if (local.size() > 64) return false;
    if (local.size() > 2 && local.front() == '"' && local.back() == '"') {
        const std::string_view inside = local.substr(1, local.size() - 2);
        return std::all_of(inside.begin(), inside.end(), [](char c) {
            return c >= ' ' && c < 0x7f && c != '"' && c != '\\' && c != '<' && c != '>';
        });
    }
    return dotted(local, [](char c) { return is_atom_character(c) || c == '/'; });
}

/* "[192.0.2.1]", "[IPv6:2001:db8::1]". */
bool address_literal(std::string_view domain)
{
    if (domain.size() < 3 || domain.front() != '[' || domain.back() != ']') return false;
    const std::string_view inside = domain.substr(1, domain.size() - 2);
    return std::all_of(inside.begin(), inside.end(),
                       [](char c) { return is_alnum(c) || c == ':' || c == '.'; });
}

} // namespace

bool valid_list_name(std::string_view name, const std::vector<std::string> &control_suffixes)
{
    return name.size() <= LIST_NAME_MAX && name == lower(name) && dotted(name, is_atom_character) &&
           !reserved(name, control_suffixes);
}

bool valid_domain(std::string_view domain)
{
    return domain.size() <= DOMAIN_MAX && domain == lower(domain) &&
           dotted(domain, [](char c) { return is_alnum(c) || c == '-' || c == '_'; });
}

std::optional<ListAddress> parse_list_address(std::string_view address,
                                              const std::vector<std::string> &control_suffixes)
{
    const size_t at = address.rfind('@');
    if (at == std::string_view::npos) return std::nullopt;
    const std::string local = lower(address.substr(0, at));
    const std::string domain = lower(address.substr(at + 1));
    const auto [role, list] = role_of(local, control_suffixes);
    if (!valid_list_name(list, control_suffixes) || !valid_domain(domain)) return std::nullopt;
    return ListAddress{role, std::string(list), domain};
}

std::optional<ListAddress> parse_list_name(std::string_view address,
                                           const std::vector<std::string> &control_suffixes)
{
    auto parsed = parse_list_address(address, control_suffixes);
    if (parsed && parsed->role != Role::post) return std::nullopt;
    return parsed;
}

bool valid_mailbox(std::string_view address)
{
    const size_t at = address.rfind('@');
    if (at == std::string_view::npos || at == 0 || address.size() > MAILBOX_MAX) return false;
    const std::string_view domain = address.substr(at + 1);
    return valid_local_part(address.substr(0, at)) &&
           (address_literal(domain) || valid_domain(lower(domain)) ||
            (domain.size() <= 253 &&
             dotted(domain, [](char c) { return is_alnum(c) || c == '-' || c == '_'; })));
}
