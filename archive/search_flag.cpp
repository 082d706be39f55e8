/* Keys over the index alone: flags, message sets, sizes. */
#include <stdlib.h>
#include <string.h>

#include "archive/mbx.h"
#include "archive/search.h"
#include "archive/token.h"
#include "module/ascii.h"
#include "module/host_mem.h"

/* -- flags -- */

static const struct {
    const char *name;
    uint32_t bit;
} flag_rows[] = {
    {"DELETED", MESSAGE_DELETED},   {"SEEN", MESSAGE_SEEN},   {"FLAGGED", MESSAGE_FLAGGED},
    {"ANSWERED", MESSAGE_ANSWERED}, {"DRAFT", MESSAGE_DRAFT}, {"RECENT", MESSAGE_RECENT},
    {"$MDNSent", MESSAGE_MDNSENT},
};

static uint32_t find_flag(const char *name)
{
    for (const auto &row : flag_rows)
        if (same_text_nocase(name, row.name)) return row.bit;
    return 0;
}

SearchEntry *search_flag(Search *search, SearchEntry *set, const char *key)
{
    const bool negated = begins_nocase(key, "UN");
    const uint32_t bit = find_flag(negated ? key + 2 : key);
    if (bit == 0) {
        (void)search_error(search);
        return filter_set(set, [](int) { return false; });
    }
    const IndexRecord *index = search->handle->index;
    return filter_set(set, [=](int s) { return ((index[s].flags & bit) != 0) != negated; });
}

/* -- message sets -- */

/* Hands the ranges of a set to take(low, high) until its end, a mistake, or the number 0.  Behind
   it: where the line goes on, null at its end. */
template <class Take> static char *walk_set(char *text, uint32_t maximum, Take take)
{
    SetReader reader = {text, maximum};
    uint32_t low, high;
    for (;;) {
        const SetElement element = read_element(&reader, &low, &high);
        if (element == SetElement::error) return nullptr;
        if (element == SetElement::end) break;
        if (low == 0) return nullptr;
        take(low, high < low ? low : high);
    }
    return *reader.next == ' ' ? text + (reader.next - text) + 1 : nullptr;
}

/* Marks are differences while a set is read: +1 where a range begins, -1 (modulo 2^32) behind its
   end.  So a range costs two writes however wide it is, and a set of many wide ranges no more than
   its own length and one pass. */
static void mark(SearchEntry *marks, uint32_t begin, uint32_t end)
{
    if (begin >= end || begin >= entry_count(marks)) return;
    ++marks[begin].matched;
    if (end < entry_count(marks)) --marks[end].matched;
}

static SearchEntry *sum_marks(SearchEntry *marks)
{
    uint32_t open_ranges = 0, hits = 0;
    for (uint32_t s = 1; s < entry_count(marks); ++s) {
        open_ranges += marks[s].matched;
        marks[s].matched = open_ranges != 0 ? 1 : 0;
        hits += marks[s].matched;
    }
    marks[0].matched = hits;
    return marks;
}

/* An empty set, to be marked. */
static SearchEntry *empty_set(Search *search)
{
    SearchEntry *marks = search_full_set(search);
    if (marks == nullptr) return search_error(search);
    return filter_set(marks, [](int) { return false; });
}

SearchEntry *search_msgset(Search *search, SearchEntry *set, char *text)
{
    SearchEntry *marks = empty_set(search);
    if (marks == nullptr) return nullptr;
    const uint32_t count = entry_count(set);
    (void)walk_set(text, count - 1, [=](uint32_t low, uint32_t high) {
        mark(marks, low, high < count ? high + 1 : count);
    });
    return search_and(set, sum_marks(marks));
}

/* The first message whose UID is not below uid. */
static uint32_t first_at_or_above(const SearchEntry *set, uint64_t uid)
{
    uint32_t low = 1, high = entry_count(set);
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (set[middle].uid < uid)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

SearchEntry *search_uid(Search *search, SearchEntry *set, char *text, char **rest_out)
{
    SearchEntry *marks = empty_set(search);
    if (marks == nullptr) return nullptr;
    *rest_out =
        walk_set(text, uid_next(search->handle->index) - 1, [=](uint32_t low, uint32_t high) {
            mark(marks, first_at_or_above(marks, low),
                 first_at_or_above(marks, uint64_t{high} + 1));
        });
    return search_and(set, sum_marks(marks));
}

/* -- sizes -- */

SearchEntry *search_size(Search *search, SearchEntry *set, bool larger, const char *number)
{
    const int64_t limit = strtoll(number, nullptr, 10);
    const IndexRecord *index = search->handle->index;
    return filter_set(set, [=](int s) {
        const int64_t size = index[s].size;
        return larger ? size > limit : size < limit;
    });
}
