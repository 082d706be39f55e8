#include "host/mlistctl/roster_text.h"

#include <algorithm>
#include <map>

#include "host/base/text.h"
#include "host/mlistctl/address.h"
#include "mlist/list_settings.h"

/* Status words as the module reads them: by their first letters, in any case. */
static int status_of(std::string_view word)
{
    if (begins_nocase(word, "ON")) return MEMBER_ON;
    if (begins_nocase(word, "OFF")) return MEMBER_OFF;
    if (begins_nocase(word, "DGT")) return MEMBER_DIGEST;
    return MEMBER_QUIT;
}

static std::string line_fault(std::string_view line, size_t space)
{
    if (space == std::string_view::npos) return "has no status";
    if (status_of(line.substr(space + 1)) == MEMBER_QUIT) return "has a status that is none";
    if (const char *fault = member_address_fault(line.substr(0, space)))
        return "cannot be written to: " + std::string(fault);
    return "";
}

Roster read_roster(std::string_view text)
{
    Roster roster;
    std::map<std::string, size_t> lines_of;
    for (size_t number = 1; !text.empty(); number++) {
        size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);

        size_t space = line.find(' ');
        std::string place = "line " + std::to_string(number) + ", '" + one_line(line) + "', ";
        if (std::string fault = line_fault(line, space); !fault.empty())
            roster.faults.push_back(place + fault);
        if (space == std::string_view::npos) continue;

        auto [known, added] = lines_of.emplace(lower(line.substr(0, space)), number);
        if (!added)
            roster.faults.push_back(place + "is line " + std::to_string(known->second) + " again");
        int status = status_of(line.substr(space + 1));
        std::string entry = std::string(line.substr(0, space)) + "\r\n";
        if (status == MEMBER_ON) roster.active += entry;
        if (status == MEMBER_DIGEST) roster.digest += entry;
    }
    return roster;
}
