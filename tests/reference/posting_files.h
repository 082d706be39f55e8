/* Control files in their plain form: whole contents in memory, lines a byte at a time, replacement
   by three copies. */
#ifndef TESTS_REFERENCE_POSTING_FILES_H
#define TESTS_REFERENCE_POSTING_FILES_H

#include <stdint.h>

#include <string>
#include <vector>

#include "module/job.h"

namespace literal
{
std::string path_of(const DeliveryJob &job, const std::string &name);
std::string contents_of(const std::string &path);

/* All lines as the file layer hands them out to a buffer of size bytes. */
std::vector<std::string> lines_of(const std::string &path, int size);

/* Finishes or discards a replacement that was cut short. */
void recover(const std::string &path);

/* Whether the sender may post: in "grant", or in the roster when that is empty.  1, 0, or -1
   (logged). */
int may_post(const DeliveryJob &job);

/* Adds a number to "dgtstat".  0, or -1 (logged). */
int add_to_digest(const DeliveryJob &job, uint32_t number);

/* Whether "active" names anybody; logs what it found. */
bool has_active(const DeliveryJob &job);
} // namespace literal

#endif
