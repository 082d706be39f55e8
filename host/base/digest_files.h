/* What the digest clock keeps below the data directory, and how a push is asked for: by a file of
   the list's name in a directory that nobody but the data's owner may enter. */
#ifndef HOST_BASE_DIGEST_FILES_H
#define HOST_BASE_DIGEST_FILES_H

#include <string>

#include "host/base/names.h"
#include "host/base/settings.h"

/* DATA/digest. */
std::string digest_directory(const Settings &settings);

/* The last day on which a list's digest was pushed: DATA/digest/LIST@DOMAIN.day. */
std::string digest_day_path(const Settings &settings, const ListAddress &list);

/* A push that somebody asked for: DATA/digest/asked/LIST@DOMAIN, empty. */
std::string asked_push_directory(const Settings &settings);
std::string asked_push_path(const Settings &settings, const ListAddress &list);

/* Makes both directories where they are missing, for their owner alone. */
Result<void> make_digest_directories(const Settings &settings);

#endif
