/* A small mailbox of this process's own for a fuzzer, in memory where the machine has a place for
   that; it is removed when the process ends. */
#ifndef FUZZ_SMALL_ARCHIVE_H
#define FUZZ_SMALL_ARCHIVE_H

#include <stdint.h>

#include <string>

#include "fuzz/demand.h"

std::string read_text(const std::string &path); /* "" when there is none */
void write_text(const std::string &path, const std::string &text);

/* The mailbox's path, made at the first call. */
const std::string &fuzz_mailbox();

/* Appends a message with CR LF line ends.  Whether the store took it. */
bool append_message(const std::string &message, uint32_t flags);

#endif
