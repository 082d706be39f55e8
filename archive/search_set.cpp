/* Result sets of a search. */
#include "archive/mbx.h"
#include "archive/search.h"
#include "module/host_mem.h"

SearchEntry *search_full_set(const Search *search)
{
    IndexRecord *index = search->handle->index;
    const uint32_t count = record_count(index);
    SearchEntry *set =
        static_cast<SearchEntry *>(host_allocate(size_t{count} * sizeof(SearchEntry)));
    if (set == nullptr) return nullptr;
    set[0] = {count, count - 1};
    for (uint32_t s = 1; s < count; ++s)
        set[s] = {index[s].uid, 1};
    return set;
}

SearchEntry *search_and(SearchEntry *set, SearchEntry *other)
{
    filter_set(set, [other](int s) { return other[s].matched != 0; });
    host_release(other);
    return set;
}

SearchEntry *search_or(SearchEntry *set, SearchEntry *other)
{
    uint32_t hits = 0;
    for (uint32_t s = 1; s < entry_count(set); ++s) {
        set[s].matched |= other[s].matched;
        hits += set[s].matched;
    }
    set[0].matched = hits;
    host_release(other);
    return set;
}

SearchEntry *search_not(SearchEntry *set)
{
    for (uint32_t s = 1; s < entry_count(set); ++s)
        set[s].matched ^= 1;
    set[0].matched = entry_count(set) - 1 - set[0].matched;
    return set;
}
