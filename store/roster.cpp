/* Reading the lines of the roster. */
#include "store/roster.h"

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
