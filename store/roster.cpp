/* Reading the lines of the roster. */
#include "store/roster.h"

#include <stdlib.h>
#include <string.h>

#include "module/ascii.h"

RosterKey roster_key(const char *address)
{
    return {address, static_cast<uint32_t>(strlen(address)), strchr(address, ' ') == nullptr};
}

/* The place of the blank and the first byte rule out nearly every line of a long roster. */
bool is_line_of(const LineView &line, const RosterKey &key)
{
    if (line.size <= key.size || line.text[key.size] != ' ' || !key.findable) return false;
    if (ascii_lower(static_cast<unsigned char>(line.text[0])) !=
        ascii_lower(static_cast<unsigned char>(key.size > 0 ? key.address[0] : ' ')))
        return false;
    return same_bytes_nocase(line.text, key.address, key.size);
}

/* -- many addresses -- */

/* Like strcmp(), without regard to case. */
static int compare_addresses(const char *left, size_t left_size, const char *right,
                             size_t right_size)
{
    const size_t common = left_size < right_size ? left_size : right_size;
    for (size_t i = 0; i < common; ++i) {
        const int difference = ascii_lower(static_cast<unsigned char>(left[i])) -
                               ascii_lower(static_cast<unsigned char>(right[i]));
        if (difference != 0) return difference;
    }
    return left_size == right_size ? 0 : left_size < right_size ? -1 : 1;
}

/* Of equal ones the first comes first. */
int RosterSet::order(const void *left, const void *right)
{
    const Entry *one = static_cast<const Entry *>(left), *other = static_cast<const Entry *>(right);
    const int difference = compare_addresses(one->address, one->size, other->address, other->size);
    return difference != 0 ? difference : one->number < other->number ? -1 : 1;
}

RosterSet::RosterSet(const char *const *caller_addresses, size_t number_of_addresses)
    : addresses(caller_addresses), count(number_of_addresses), sorted_((count + 1) * sizeof(Entry))
{
    if (!ready()) return;
    for (size_t i = 0; i < count; ++i)
        sorted_.p[i] = {addresses[i], static_cast<uint32_t>(strlen(addresses[i])), i};
    qsort(sorted_.p, count, sizeof(Entry), order);
}

size_t RosterSet::search(const char *address, size_t size) const
{
    size_t low = 0, high = count; /* the first that is not before the address is between them */
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        const Entry &entry = sorted_.p[middle];
        if (compare_addresses(entry.address, entry.size, address, size) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == count) return NOBODY;
    const Entry &entry = sorted_.p[low];
    return compare_addresses(entry.address, entry.size, address, size) == 0 ? entry.number : NOBODY;
}

size_t RosterSet::find(const LineView &line) const
{
    const MemberLine member = split_member(line);
    return member.address == nullptr ? NOBODY : search(member.address, member.address_size);
}

size_t RosterSet::first_of(size_t number) const
{
    return search(addresses[number], strlen(addresses[number]));
}

/* -- the parts of a line -- */

MemberLine split_member(const LineView &line)
{
    const void *found = memchr(line.text, ' ', line.size);
    if (found == nullptr) return {nullptr, 0, nullptr, 0};
    const char *blank = static_cast<const char *>(found);
    const uint32_t address_size = static_cast<uint32_t>(blank - line.text);
    return {line.text, address_size, blank + 1, line.size - address_size - 1};
}

/* KEPT: two characters are enough for ON, so that ONX reads as a member who receives.
   Test: MemberStatus.WordsAreReadByTheirFirstCharacters */
int status_of_word(const char *word, size_t size)
{
    static const struct {
        const char *word;
        size_t compared;
        int status;
    } words[] = {{"ON", 2, 1}, {"OFF", 3, 2}, {"DGT", 3, 3}};

    for (const auto &known : words)
        if (size >= known.compared && same_bytes_nocase(word, known.word, known.compared))
            return known.status;
    return 0;
}

int status_of_line(const LineView &line)
{
    const MemberLine member = split_member(line);
    return member.address == nullptr ? 0 : status_of_word(member.word, member.word_size);
}
