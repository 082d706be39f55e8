/* Lines of the member roster: "ADDRESS WORD", the word one of mi2ms. */
#ifndef STORE_ROSTER_H
#define STORE_ROSTER_H

#include <stddef.h>
#include <stdint.h>

#include "module/host_mem.h"
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

/* Many addresses to look for in one pass.  They stay the caller's, and numbered as the caller has
   them; those that are equal but for case are one, under the number of the first. */
struct RosterSet {
    RosterSet(const char *const *caller_addresses, size_t number_of_addresses);

    /* Whether there was memory for it; errno ENOMEM.  Nothing may be looked for otherwise. */
    [[nodiscard]] bool ready() const { return sorted_.p != nullptr; }

    /* The number of the address that the line is of (as is_line_of()), or NOBODY. */
    size_t find(const LineView &line) const;
    static constexpr size_t NOBODY = SIZE_MAX;

    /* The number under which this address is found: its own, unless it stands there before. */
    size_t first_of(size_t number) const;

    const char *const *const addresses;
    const size_t count;

  private:
    struct Entry {
        const char *address;
        uint32_t size;
        size_t number;
    };
    static int order(const void *left, const void *right);
    size_t search(const char *address, size_t size) const;
    HostPtr<Entry> sorted_;
};

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
