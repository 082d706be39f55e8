/* SEARCH, inside.  A search works on the handle's view and on message files, without any lock. */
#ifndef ARCHIVE_SEARCH_H
#define ARCHIVE_SEARCH_H

#include <stddef.h>
#include <stdint.h>

#include "archive/fetch.h"
#include "archive/growing.h"
#include "mlist/fetch.h"
#include "mlist/search.h"

#define SEARCH_MAX_DEPTH 64      /* of groups; what nests deeper is a syntax error */
#define SEARCH_MAX_TREES 1000000 /* parsed messages kept for further text keys */

/* The messages that are still in: entry 0 has the number of entries and of hits, entry s the UID
   of message s and whether it matches. */
struct SearchEntry {
    uint32_t uid;     /* entry 0: number of entries */
    uint32_t matched; /* entry 0: number of hits */
};

/* One search. */
struct Search {
    MailboxHandle *handle;
    const char *charset;
    PartNode **trees; /* by sequence number: messages parsed for an earlier key; may be null */
    uint32_t tree_count;
    bool keep_trees; /* a further text key may want them */
    int depth;
    MessageDirectory directory;
};

/* The search-error bit: the criteria are malformed.  Always null. */
SearchEntry *search_error(Search *search);
bool search_failed(const Search *search);

/* -- sets (search_set.cpp); host memory, null without -- */
[[nodiscard]] SearchEntry *search_full_set(const Search *search);
SearchEntry *search_and(SearchEntry *set, SearchEntry *other); /* other is released */
SearchEntry *search_or(SearchEntry *set, SearchEntry *other);
SearchEntry *search_not(SearchEntry *set);
inline uint32_t entry_count(const SearchEntry *set)
{
    return set[0].uid;
}

/* Keeps the matched messages for which keep(sequence) is true. */
template <class Keep> SearchEntry *filter_set(SearchEntry *set, Keep keep)
{
    uint32_t hits = 0;
    for (uint32_t s = 1; s < entry_count(set); ++s) {
        if (set[s].matched != 0) set[s].matched = keep(static_cast<int>(s)) ? 1 : 0;
        hits += set[s].matched;
    }
    set[0].matched = hits;
    return set;
}

/* -- evaluation (search.cpp, search_key.cpp).  position is where the text goes on, null at its
   end.  All answer the set, or null after an error. -- */
SearchEntry *search_main(Search *search, char *text, SearchEntry *set);
SearchEntry *search_key(Search *search, SearchEntry *set, char *key, char **position);

/* The next key, a new text of host memory; null for an empty one, and without memory (an error). */
[[nodiscard]] char *search_getkey(Search *search, char **position);

/* -- keys -- */
SearchEntry *search_flag(Search *search, SearchEntry *set, const char *key);
SearchEntry *search_msgset(Search *search, SearchEntry *set, char *text);
SearchEntry *search_uid(Search *search, SearchEntry *set, char *text, char **rest_out);
SearchEntry *search_size(Search *search, SearchEntry *set, bool larger, const char *number);
SearchEntry *search_internal_date(Search *search, SearchEntry *set, const char *key,
                                  const char *date);
SearchEntry *search_date(Search *search, SearchEntry *set, const char *key, const char *date);
SearchEntry *search_header(Search *search, SearchEntry *set, const char *field, char *wanted);
SearchEntry *search_text(Search *search, SearchEntry *set, char *wanted);
SearchEntry *search_body(Search *search, SearchEntry *set, char *wanted);

/* -- dates (search_date.cpp): 1 with the date, 0 -- */
int search_analize_imapdate(const char *text, int *day_out, int *month_out, int *year_out);
int search_get_rfc822date(const MailboxHandle *handle, int sequence, int *day_out, int *month_out,
                          int *year_out);

/* -- conversions to EUC-JP (search_conv.cpp, search_decode.cpp).  Bytes in, bytes out; false
   without memory. -- */
[[nodiscard]] bool search_jis2euc(const char *data, size_t size, GrowingText *out);
[[nodiscard]] bool search_sjis2euc(const char *data, size_t size, GrowingText *out);
[[nodiscard]] bool search_euc2euc(const char *data, size_t size, GrowingText *out);
[[nodiscard]] bool search_mime_decode(const char *header, size_t size, GrowingText *out);
[[nodiscard]] bool search_b64_dec(const char *data, size_t size, GrowingText *out);
[[nodiscard]] bool search_q_dec(const char *data, size_t size, GrowingText *out);

#endif
