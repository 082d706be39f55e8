/* A list's durable record of the last day on which its digest was pushed. */
#ifndef HOST_MLISTD_DIGEST_DAY_FILE_H
#define HOST_MLISTD_DIGEST_DAY_FILE_H

#include "host/base/result.h"
#include "host/mlistd/digest/schedule.h"

/* Nothing when there is no record, or none that can be read as a day. */
std::optional<Day> read_day_file(const std::string &path);

/* Replaces the record as a whole, on disk when it returns.  One thread at a time in a directory. */
Result<void> write_day_file(const std::string &path, Day day);

#endif
