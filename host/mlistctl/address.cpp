#include "host/mlistctl/address.h"

#include "host/base/text.h"
#include "host/mlistctl/failure.h"

constexpr size_t max_member_address = 254; /* of a path in SMTP, without its brackets */

static const char *advice_for(Role role)
{
    switch (role) {
    case Role::owner:
        return "owner-NAME and NAME-owner reach the owners of the list NAME: choose another name";
    case Role::control:
        return "that ending makes it the control address of another list: choose another name";
    case Role::post:
        break;
    }
    return "write LIST@DOMAIN: a name of at most 32 letters, digits, \"-\", \"_\", \"+\" and inner "
           "dots, and a domain name";
}

ListAddress read_list_address(std::string_view text,
                              const std::vector<std::string> &control_suffixes)
{
    if (auto address = parse_list_name(text, control_suffixes)) return *address;
    auto other = parse_list_address(text, control_suffixes);
    throw Failure{CTL_USAGE, "'" + one_line(text) + "' cannot be a list's address",
                  advice_for(other ? other->role : Role::post)};
}

const char *member_address_fault(std::string_view address)
{
    static constexpr std::string_view special = "<>()[],;:\"\\";
    if (address.size() > max_member_address) return "it is longer than 254 bytes";
    size_t at = address.find('@');
    if (at == std::string_view::npos || at == 0 || at + 1 == address.size())
        return "it is not of the form name@domain";
    if (address.find('@', at + 1) != std::string_view::npos) return "it has more than one \"@\"";
    if (address.front() == '-')
        return "it begins with \"-\", which mail programs take as an option";
    for (char byte : address) {
        if (byte == ' ' || is_control(byte)) return "it holds a blank or a control character";
        if (static_cast<unsigned char>(byte) >= 0x80) return "it holds a character beyond ASCII";
        if (special.find(byte) != std::string_view::npos)
            return "it holds one of < > ( ) [ ] , ; : \" \\";
    }
    return nullptr;
}
