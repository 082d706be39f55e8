/* SEARCH: criteria text in, one untagged line out. */
#include "archive/search.h"

#include <string.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "archive/token.h"
#include "module/ascii.h"
#include "module/host_mem.h"
#include "module/sink.h"

SearchEntry *search_error(Search *search)
{
    search->handle->mode |= MAILBOX_SEARCH_ERROR;
    return nullptr;
}

bool search_failed(const Search *search)
{
    return (search->handle->mode & MAILBOX_SEARCH_ERROR) != 0;
}

/* -- keys of the text -- */

/* Behind the ")" that closes the "(" at text, or the end of the text. */
static const char *end_of_group(const char *text)
{
    int depth = 0;
    bool quoted = false;
    for (; *text != '\0'; ++text) {
        if (*text == '\\' && text[1] != '\0')
            ++text;
        else if (*text == '"')
            quoted = !quoted;
        else if (!quoted && *text == '(')
            ++depth;
        else if (!quoted && *text == ')' && --depth == 0)
            return text + 1;
    }
    return text;
}

static const char *end_of_word(const char *text)
{
    bool quoted = false;
    for (; *text != '\0' && *text != '\r' && *text != '\n'; ++text) {
        if (*text == '"') quoted = !quoted;
        if (*text == ' ' && !quoted) break;
    }
    return text;
}

char *search_getkey(Search *search, char **position)
{
    char *begin = *position;
    if (begin == nullptr) return nullptr;
    const char *end = *begin == '(' ? end_of_group(begin) : end_of_word(begin);
    const size_t length = static_cast<size_t>(end - begin);
    *position = begin + length;
    *position += strspn(*position, " ");
    if (length == 0) return nullptr;
    char *key = static_cast<char *>(host_allocate(length + 1));
    if (key == nullptr) {
        (void)search_error(search); /* or the rest of the criteria would go unnoticed */
        return nullptr;
    }
    memcpy(key, begin, length);
    key[length] = '\0';
    return key;
}

/* -- OR and NOT -- */

/* Evaluates one key over all messages; null after an error. */
static SearchEntry *evaluate_operand(Search *search, char **position)
{
    const HostPtr<char> key(search_getkey(search, position));
    SearchEntry *set = key.p != nullptr ? search_full_set(search) : nullptr;
    if (set == nullptr) return search_error(search);
    SearchEntry *result = search_key(search, set, key.p, position);
    if (result != nullptr && !search_failed(search)) return result;
    host_release(set);
    return nullptr;
}

static SearchEntry *evaluate_or(Search *search, SearchEntry *set, char **position)
{
    SearchEntry *left = evaluate_operand(search, position);
    if (left == nullptr) return nullptr;
    SearchEntry *right = evaluate_operand(search, position);
    if (right == nullptr) {
        host_release(left);
        return nullptr;
    }
    return search_and(set, search_or(left, right));
}

static SearchEntry *evaluate_not(Search *search, SearchEntry *set, char **position)
{
    SearchEntry *operand = evaluate_operand(search, position);
    return operand != nullptr ? search_and(set, search_not(operand)) : nullptr;
}

static SearchEntry *evaluate_key(Search *search, SearchEntry *set, char *key, char **position)
{
    if (same_text_nocase(key, "OR")) return evaluate_or(search, set, position);
    if (same_text_nocase(key, "NOT")) return evaluate_not(search, set, position);
    return search_key(search, set, key, position);
}

/* The set stays the caller's after an error; one that was made here is released.
   KEPT: a blank where a key should begin is an empty key, and ends the criteria.
   Test: SearchKeys.ABlankTooManyBehindAnArgumentEndsTheCriteria */
static SearchEntry *evaluate_all(Search *search, char *text, SearchEntry *set)
{
    SearchEntry *const given = set;
    char *position = text;
    for (;;) {
        const HostPtr<char> key(search_getkey(search, &position));
        if (key.p == nullptr && !search_failed(search)) return set;
        if (set == nullptr) set = search_full_set(search);
        if (set == nullptr) return search_error(search);
        if (key.p != nullptr && evaluate_key(search, set, key.p, &position) != nullptr &&
            !search_failed(search))
            continue;
        if (given == nullptr) host_release(set);
        return search_error(search);
    }
}

SearchEntry *search_main(Search *search, char *text, SearchEntry *set)
{
    if (search->depth >= SEARCH_MAX_DEPTH) return search_error(search);
    ++search->depth;
    SearchEntry *result = evaluate_all(search, text, set);
    --search->depth;
    return result;
}

/* -- the search -- */

static void print_result(const SearchEntry *set, bool uid)
{
    if (set == nullptr || set[0].matched == 0) return;
    out_printf("* SEARCH");
    for (uint32_t s = 1; s < entry_count(set); ++s)
        if (set[s].matched != 0) out_printf(" %d", static_cast<int>(uid ? set[s].uid : s));
    out_printf("\r\n");
}

static void release_trees(Search *search)
{
    for (uint32_t s = 0; search->trees != nullptr && s < search->tree_count; ++s)
        list_freemime(search->trees[s]);
    host_release(search->trees);
}

/* Whether more than one key may read messages; counts a key's word in a quoted string too, which
   costs nothing but memory. */
static bool has_several_text_keys(const char *text)
{
    static const char *const words[] = {"TEXT", "BODY", "HEADER", "SUBJECT",
                                        "FROM", "TO",   "CC",     "BCC"};
    int keys = 0;
    for (; *text != '\0'; text += strcspn(text, " (")) {
        text += strspn(text, " (");
        for (const char *word : words)
            if (begins_nocase(text, word) && text[strlen(word)] == ' ') ++keys;
    }
    return keys > 1;
}

int mlmbx_search(MailboxHandle *handle, const char *text, const char *charset, int uid)
{
    if (handle == nullptr || handle->index == nullptr || text == nullptr) return 0;
    begin_operation(handle);
    list_mbx_freecache(handle); /* it may hold a message that has another number by now */
    handle->mode &= ~static_cast<uint32_t>(MAILBOX_SEARCH_ERROR);
    const HostPtr<char> copy(host_copy_text(text)); /* the tokenizers write into it */
    Search search = {handle,
                     charset,
                     nullptr,
                     0,
                     has_several_text_keys(text),
                     0,
                     MessageDirectory(handle->path)};
    SearchEntry *set =
        copy.p != nullptr ? search_main(&search, copy.p, nullptr) : search_error(&search);
    const bool failed = search_failed(&search);
    if (!failed) print_result(set, uid != 0);
    host_release(set);
    release_trees(&search);
    set_astring_position(nullptr); /* what it may point into is gone */
    out_flush();
    return failed ? 0 : 1;
}
