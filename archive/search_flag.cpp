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

static void mark(SearchEntry *marks, uint32_t low, uint32_t high)
{
    for (uint32_t s = low; s <= high && s < entry_count(marks); ++s)
        marks[s].matched = 1;
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
    (void)walk_set(text, entry_count(set) - 1,
                   [marks](uint32_t low, uint32_t high) { mark(marks, low, high); });
    return search_and(set, marks);
}

/* The first message whose UID is not below uid. */
static uint32_t first_at_or_above(const SearchEntry *set, uint32_t uid)
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
        walk_set(text, uid_next(search->handle->index) - 1, [marks](uint32_t low, uint32_t high) {
            for (uint32_t s = first_at_or_above(marks, low);
                 s < entry_count(marks) && marks[s].uid <= high; ++s)
                marks[s].matched = 1;
        });
    return search_and(set, marks);
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
