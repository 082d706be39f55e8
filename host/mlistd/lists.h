/* The lists on disk, as the daemon sees them: which there are, who owns them. */
#ifndef HOST_MLISTD_LISTS_H
#define HOST_MLISTD_LISTS_H

#include <string>
#include <vector>

#include "host/base/names.h"
#include "host/base/result.h"
#include "host/base/settings.h"

/* A list exists when its "init" is a regular file.  Looks only, creates nothing; an error when that
   cannot be said. */
Result<bool> look_for_list(const Settings &settings, const ListAddress &list);

/* The same; what cannot be said is no. */
bool list_exists(const Settings &settings, const ListAddress &list);

/* Every list below the control root, in no order; directories whose names can be no list's are
   passed over.  A root that is missing holds none. */
std::vector<ListAddress> all_lists(const Settings &settings);

/* The lines of a file of addresses, without line ends and empty lines; a missing file has none. */
Result<std::vector<std::string>> read_address_lines(const std::string &path);

/* The owners' addresses; lines that are no address are passed over. */
std::vector<std::string> owners_of(const Settings &settings, const ListAddress &list);

#endif
