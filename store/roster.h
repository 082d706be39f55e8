/* Lines of the member roster: "ADDRESS WORD", the word one of mi2ms. */
#ifndef STORE_ROSTER_H
#define STORE_ROSTER_H

#include <stddef.h>
#include <stdint.h>

#include "store/ntio_view.h"

/* An address to look for. */
struct RosterKey {
    const char *address;
    uint32_t size;
    bool findable; /* a blank in it: no line's address can be equal */
};

RosterKey roster_key(const char *address);

/* Whether the line is the address's: its text before the first blank is equal but for case. */
bool is_line_of(const LineView &line, const RosterKey &key);

/* A line's parts.  Without a blank there is no address: null. */
struct MemberLine {
    const char *address;
    uint32_t address_size;
    const char *word; /* what follows the blank, up to the end of the line */
    uint32_t word_size;
};

MemberLine split_member(const LineView &line);

/* Status number of a stored word of size bytes, 0 unknown. */
int status_of_word(const char *word, size_t size);

/* Status number of a line, 0 unknown or no member's. */
int status_of_line(const LineView &line);

#endif
