/* Where a list's files lie, and making them so that they outlive a crash. */
#ifndef HOST_MLISTCTL_PATHS_H
#define HOST_MLISTCTL_PATHS_H

#include <string>
#include <string_view>
#include <vector>

#include "host/base/names.h"

/* Directory of the list's control files, and a file in it. */
std::string control_file(const ListAddress &address, std::string_view file = "");

/* Directory that holds the list's archive, and the archive itself. */
std::string box_directory(const ListAddress &address);
std::string archive_directory(const ListAddress &address);

/* A list exists when its "init" is a regular file. */
bool list_exists(const ListAddress &address);

/* Throws a Failure (no list) when it does not. */
void require_list(const ListAddress &address);

/* Every list below the control root, in the order of their names. */
std::vector<ListAddress> all_lists();

/* Makes the directory and the missing ones above it, each durable. */
void make_directories(const std::string &path);

/* Creates an empty file unless there is one. */
void make_empty_file(const std::string &path);

/* Puts the whole text at path at once: readers and crashes see nothing or all of it.  working must
   lie in the same directory. */
void write_durably(const std::string &path, const std::string &working, std::string_view text);

/* The file's content; throws when it cannot be read. */
std::string read_whole(const std::string &path);

#endif
