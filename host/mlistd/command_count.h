/* How many commands stand in a mail.  The module answers each with a mail of its own. */
#ifndef HOST_MLISTD_COMMAND_COUNT_H
#define HOST_MLISTD_COMMAND_COUNT_H

#include <stddef.h>

#include <string>

#include "host/base/result.h"

/* Lines of the file that begin with the hash sign, blanks before it aside; counting ends behind
   most. */
Result<size_t> count_commands(const std::string &file, size_t most);

#endif
