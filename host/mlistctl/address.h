/* Addresses of lists and of members: what may stand on a command line. */
#ifndef HOST_MLISTCTL_ADDRESS_H
#define HOST_MLISTCTL_ADDRESS_H

#include <string>
#include <string_view>
#include <vector>

#include "host/base/names.h"

/* Reads LIST@DOMAIN; throws a Failure (usage) that says why it cannot be a list. */
ListAddress read_list_address(std::string_view text,
                              const std::vector<std::string> &control_suffixes);

/* What is wrong with a member's address, or null: one "@", no blanks, controls, quotes or
   brackets, 254 bytes at most. */
const char *member_address_fault(std::string_view address);

#endif
