/* The "member" file read as text: only to tell what is wrong with it, never to change it. */
#ifndef HOST_MLISTCTL_ROSTER_TEXT_H
#define HOST_MLISTCTL_ROSTER_TEXT_H

#include <string>
#include <string_view>
#include <vector>

struct Roster {
    std::string active, digest;      /* what the two derived files should hold */
    std::vector<std::string> faults; /* one sentence each, with the line's number */
};

Roster read_roster(std::string_view text);

#endif
