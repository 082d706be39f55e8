/* The mailbox operations in their plain form: every transaction makes its work copy at once and
   always commits it through three copies; lines are printed where they arise; records move one by
   one.  Slow and obvious, for comparison with the archive's own.  Single-threaded; no faults. */
#ifndef TESTS_REFERENCE_INDEX_LITERAL_H
#define TESTS_REFERENCE_INDEX_LITERAL_H

#include <stdint.h>

#include <string>
#include <vector>

#include "mlist/archive.h"

namespace literal
{
struct Log {
    std::vector<std::string> lines; /* "LEVEL/MSGNO TEXT" */
    std::string printed;
};

struct Mailbox {
    std::string path;
    int32_t stamp = 0;
    uint32_t mode = 0;
    std::vector<IndexRecord> index; /* record 0 the header, its count kept up to date */
};

/* False when the mailbox could not be opened; then it was made anew. */
bool open(const std::string &path, uint32_t mode, Mailbox *box, Log *log);
void close(Mailbox *box, Log *log);
void checknewmail(Mailbox *box, Log *log);
void checknewmail2(Mailbox *box, Log *log); /* of an index of the same UIDVALIDITY */
void expunge(Mailbox *box, bool report, uint32_t mark, Log *log);

struct Source {
    std::string file;
    uint32_t flags, header_size, size;
};
void append(const std::string &path, const std::vector<Source> &batch, Log *log);
} // namespace literal

#endif
