/* The table of search keys. */
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "archive/search.h"
#include "archive/token.h"
#include "mlist/token.h"
#include "module/ascii.h"
#include "module/host_mem.h"

/* A key, its arguments still to be read at *position. */
using KeyHandler = SearchEntry *(*)(Search *search, SearchEntry *set, const char *key,
                                    char **position);

/* The next astring of the text, which goes on behind it; null (an error) when there is none. */
static char *take_argument(Search *search, char **position)
{
    char *argument = *position != nullptr ? list_gettoken_astring(*position) : nullptr;
    *position = argument != nullptr ? astring_position() : nullptr;
    if (argument == nullptr) (void)search_error(search);
    return argument;
}

/* -- keys without argument -- */

static SearchEntry *run_flag(Search *search, SearchEntry *set, const char *key, char **)
{
    return search_flag(search, set, key);
}

static SearchEntry *run_all(Search *search, SearchEntry *set, const char *, char **)
{
    char everything[] = "1:*";
    return search_msgset(search, set, everything);
}

static SearchEntry *run_new(Search *search, SearchEntry *set, const char *, char **)
{
    return search_flag(search, search_flag(search, set, "RECENT"), "UNSEEN");
}

static SearchEntry *run_old(Search *search, SearchEntry *set, const char *, char **)
{
    char text[] = "NOT RECENT";
    return search_main(search, text, set);
}

/* -- keys with arguments -- */

#define KNOWN_KEYWORD "$MDNSent"

static SearchEntry *run_keyword(Search *search, SearchEntry *set, const char *key, char **position)
{
    const char *keyword = take_argument(search, position);
    if (keyword == nullptr) return set;
    if (!same_text_nocase(keyword, KNOWN_KEYWORD)) return search_error(search);
    const bool negated = ascii_lower(static_cast<unsigned char>(*key)) == 'u';
    return search_flag(search, set, negated ? "UN" KNOWN_KEYWORD : KNOWN_KEYWORD);
}

static SearchEntry *run_field(Search *search, SearchEntry *set, const char *key, char **position)
{
    char *wanted = take_argument(search, position);
    return wanted != nullptr ? search_header(search, set, key, wanted) : set;
}

static SearchEntry *run_header(Search *search, SearchEntry *set, const char *, char **position)
{
    const char *field = take_argument(search, position);
    if (field == nullptr) return set;
    return run_field(search, set, field, position);
}

static SearchEntry *run_body(Search *search, SearchEntry *set, const char *, char **position)
{
    char *wanted = take_argument(search, position);
    return wanted != nullptr ? search_body(search, set, wanted) : set;
}

static SearchEntry *run_text(Search *search, SearchEntry *set, const char *, char **position)
{
    char *wanted = take_argument(search, position);
    return wanted != nullptr ? search_text(search, set, wanted) : set;
}

static SearchEntry *run_size(Search *search, SearchEntry *set, const char *key, char **position)
{
    const char *number = take_argument(search, position);
    if (number == nullptr) return set;
    return search_size(search, set, same_text_nocase(key, "LARGER"), number);
}

static SearchEntry *run_internal_date(Search *search, SearchEntry *set, const char *key,
                                      char **position)
{
    const char *date = take_argument(search, position);
    return date != nullptr ? search_internal_date(search, set, key, date) : set;
}

static SearchEntry *run_sent_date(Search *search, SearchEntry *set, const char *key,
                                  char **position)
{
    const char *date = take_argument(search, position);
    return date != nullptr ? search_date(search, set, key, date) : set;
}

static SearchEntry *run_uid(Search *search, SearchEntry *set, const char *, char **position)
{
    char *text = *position;
    if (text == nullptr || *text == '\0' || *text == '\r' || *text == '\n') {
        (void)search_error(search);
        return set;
    }
    return search_uid(search, set, text, position);
}

/* -- keys that are recognised by how they begin -- */

static SearchEntry *run_group(Search *search, SearchEntry *set, char *key)
{
    const size_t length = strlen(key);
    if (length < 2 || key[length - 1] != ')') return search_error(search);
    key[length - 1] = '\0';
    return search_main(search, key + 1, set);
}

static const struct {
    const char *word;
    KeyHandler handler;
} key_rows[] = {
    {"ALL", run_all},
    {"ANSWERED", run_flag},
    {"DELETED", run_flag},
    {"DRAFT", run_flag},
    {"FLAGGED", run_flag},
    {"RECENT", run_flag},
    {"SEEN", run_flag},
    {"UNANSWERED", run_flag},
    {"UNDELETED", run_flag},
    {"UNDRAFT", run_flag},
    {"UNFLAGGED", run_flag},
    {"UNSEEN", run_flag},
    {"NEW", run_new},
    {"OLD", run_old},
    {"KEYWORD", run_keyword},
    {"UNKEYWORD", run_keyword},
    {"BCC", run_field},
    {"CC", run_field},
    {"FROM", run_field},
    {"SUBJECT", run_field},
    {"TO", run_field},
    {"HEADER", run_header},
    {"BODY", run_body},
    {"TEXT", run_text},
    {"LARGER", run_size},
    {"SMALLER", run_size},
    {"BEFORE", run_internal_date},
    {"ON", run_internal_date},
    {"SINCE", run_internal_date},
    {"SENTBEFORE", run_sent_date},
    {"SENTON", run_sent_date},
    {"SENTSINCE", run_sent_date},
    {"UID", run_uid},
};

SearchEntry *search_key(Search *search, SearchEntry *set, char *key, char **position)
{
    if (*key == '(') return run_group(search, set, key);
    if (is_ascii_digit(static_cast<unsigned char>(*key))) return search_msgset(search, set, key);
    for (const auto &row : key_rows)
        if (same_text_nocase(key, row.word)) return row.handler(search, set, key, position);
    return search_error(search);
}
