/* Message-number arguments as ranges of positions, and number lists for display. */
#include <string.h>

#include "archive/mbx.h"
#include "commands/cmd_args.h"
#include "module/ascii.h"
#include "store/str.h"

/* -- "summary" -- */

/* "last:N" */
static int last_positions(const char *text, int count, int *first_out, int *last_out)
{
    text = skip_space_tab(text);
    if (!is_ascii_digit(static_cast<unsigned char>(*text))) return -1;
    const uint32_t wanted = atodw(text);
    const uint32_t messages = static_cast<uint32_t>(count - 1);
    *last_out = count - 1;
    if (wanted == 0)
        *first_out = count - 1;
    else
        *first_out = wanted > messages ? 1 : count - static_cast<int>(wanted);
    return 0;
}

/* "A-B".  KEPT: the lower end is searched downwards and the upper one upwards, so that a range
   whose ends are not there is widened to its neighbours.
   Test: SummaryRange.WidensToTheNeighboursOfNumbersThatAreGone */
static int range_positions(const char *text, IndexRecord *index, int *first_out, int *last_out)
{
    const char *hyphen = skipdigit(text);
    if (hyphen == text || *hyphen != '-') return -1;
    if (!is_ascii_digit(static_cast<unsigned char>(hyphen[1]))) return -1;
    uint32_t low = atodw(text), high = atodw(hyphen + 1);
    if (low > high) {
        const uint32_t former = low;
        low = high;
        high = former;
    }
    *first_out = index_uid_bound(index, low, 1);
    *last_out = index_uid_bound(index, high, 0);
    return 0;
}

int summconv_argstr(const char *text, IndexRecord *index, int *first_out, int *last_out)
{
    *first_out = *last_out = 0;
    const int count = static_cast<int>(record_count(index));
    if (count < 2) return 0;
    text = skip_space_tab(text);
    if (*text == '\0') return -1;
    if (*text == '*' || begins_nocase(text, "all")) {
        *first_out = 1;
        *last_out = count - 1;
        return 0;
    }
    if (begins_nocase(text, "last:")) return last_positions(text + 5, count, first_out, last_out);
    return range_positions(text, index, first_out, last_out);
}

/* -- display -- */

/* Puts a piece behind what is there.  Whether it fitted. */
static bool put_piece(char *out, size_t size, size_t *used, const char *piece)
{
    const size_t length = strlen(piece);
    if (*used + length > size - 1) return false;
    memcpy(out + *used, piece, length + 1);
    *used += length;
    return true;
}

/* The run of consecutive numbers at *list: its first and last number.  Whether there is one. */
static bool next_run(const char **list, uint32_t *first, uint32_t *last)
{
    const char *p = skip_space_tab(*list);
    if (!is_ascii_digit(static_cast<unsigned char>(*p))) return false;
    *first = *last = atodw(p);
    p = skipdigit(p);
    for (;;) {
        const char *next = skip_space_tab(p);
        if (!is_ascii_digit(static_cast<unsigned char>(*next))) break;
        if (atodw(next) != *last + uint64_t{1}) break;
        ++*last;
        p = skipdigit(next);
    }
    *list = p;
    return true;
}

const char *short_argstr(const char *list, char *out, size_t size)
{
    if (size == 0) return list;
    const char *rest = list;
    size_t used = 0;
    uint32_t first, last;
    out[0] = '\0';
    while (next_run(&rest, &first, &last)) {
        char piece[48];
        const char *comma = used > 0 ? "," : "";
        if (last == first)
            snprintf_(piece, sizeof(piece), "%s%u", comma, first);
        else if (last == first + 1)
            snprintf_(piece, sizeof(piece), "%s%u,%u", comma, first, last);
        else
            snprintf_(piece, sizeof(piece), "%s%u-%u", comma, first, last);
        if (!put_piece(out, size, &used, piece)) return list;
    }
    return out;
}
