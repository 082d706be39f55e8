/* Numbering and archive hand-off in their plain form, on top of index_literal.h. */
#ifndef TESTS_REFERENCE_POSTING_ARCHIVE_H
#define TESTS_REFERENCE_POSTING_ARCHIVE_H

#include "module/job.h"

namespace literal
{
/* Reads the next number into the job.  0, or -1 with errno (logged, temporary failure). */
int next_number(DeliveryJob *job);

/* Appends the thread's journal and trims, or, for a keep count of zero, empties the archive.  0, or
   -1 (logged). */
int hand_to_archive(DeliveryJob *job);
} // namespace literal

#endif
