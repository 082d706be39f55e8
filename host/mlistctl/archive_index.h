/* The index of a list's archive as it lies on the disk, read without changing anything. */
#ifndef HOST_MLISTCTL_ARCHIVE_INDEX_H
#define HOST_MLISTCTL_ARCHIVE_INDEX_H

#include <string>
#include <vector>

#include "mlist/archive.h"

struct ArchiveIndex {
    bool readable = false;
    std::string fault; /* why not, or "" */
    uint32_t next_uid = 0;
    uint32_t uid_validity = 0;
    std::vector<IndexRecord> messages;
};

/* Takes the index's lock for the length of the call. */
ArchiveIndex read_archive_index(const std::string &archive);

/* What is wrong with the archive: index against message files, one sentence each. */
std::vector<std::string> archive_faults(const std::string &archive);

#endif
