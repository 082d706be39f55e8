/* Small files that threads and processes leave for whoever looks afterwards. */
#ifndef TESTS_CONCURRENCY_NOTES_H
#define TESTS_CONCURRENCY_NOTES_H

#include <string>
#include <vector>

std::string read_note(const std::string &path); /* "" for a missing file */
void write_note(const std::string &path, const std::string &text);
bool make_note(const std::string &path, const std::string &text); /* false when there is one */
std::vector<std::string> split_lines(const std::string &text, const std::string &end);

#endif
