/* The list's subject tag: making it, and finding an old one with its "Re:" prefixes. */
#include "headers/head.h"

#include <stdio.h>
#include <string.h>

#include "headers/head_jis.h"
#include "mlist/mlist.h"
#include "module/ascii.h"
#include "store/str.h"

/* -- the subject format -- */

enum class TagPiece { literal, list_name, number, padded_number };

struct TagDirective {
    const char *word;
    TagPiece piece;
    char byte; /* of a literal */
};

static const TagDirective tag_directives[] = {
    {"%%", TagPiece::literal, '%'},   {"%M", TagPiece::list_name, '\0'},
    {"%S", TagPiece::number, '\0'},   {"%0S", TagPiece::padded_number, '\0'},
    {"%09", TagPiece::literal, '\t'}, {"%20", TagPiece::literal, ' '},
};

/* Takes the next directive off the format; every byte that begins none stands for itself. */
static TagDirective next_directive(const char **format)
{
    for (const TagDirective &directive : tag_directives) {
        const size_t length = strlen(directive.word);
        if (strncmp(*format, directive.word, length) != 0) continue;
        *format += length;
        return directive;
    }
    return {"", TagPiece::literal, *(*format)++};
}

/* -- making a tag -- */

static int append_piece(const DeliveryJob *job, const TagDirective &directive, char *out,
                        size_t room)
{
    switch (directive.piece) {
    case TagPiece::literal:
        return snprintf(out, room, "%c", directive.byte);
    case TagPiece::list_name:
        return snprintf(out, room, "%s", job->list_name);
    case TagPiece::number:
        return snprintf(out, room, "%u", job->new_number);
    case TagPiece::padded_number:
        return snprintf(out, room, "%05u", job->new_number);
    }
    return 0;
}

char *make_subfmt(DeliveryJob *job, char *out, int size)
{
    if (size <= 0) return nullptr;
    size_t room = static_cast<size_t>(size);
    char *next = out;
    *next = '\0';
    for (const char *format = job->settings.subject_format; *format != '\0';) {
        const int length = append_piece(job, next_directive(&format), next, room);
        if (length < 0 || static_cast<size_t>(length) >= room) return nullptr;
        next += length;
        room -= static_cast<size_t>(length);
    }
    return out;
}

/* -- finding one -- */

/* The text behind what the directive matches, or null. */
static char *match_piece(const DeliveryJob *job, const TagDirective &directive, char *text)
{
    if (directive.piece == TagPiece::literal) return *text == directive.byte ? text + 1 : nullptr;
    if (directive.piece == TagPiece::list_name) {
        const size_t length = strlen(job->list_name);
        return strncmp(text, job->list_name, length) == 0 ? text + length : nullptr;
    }
    const size_t digits = strspn(text, "0123456789");
    return digits > 0 ? text + digits : nullptr;
}

/* The text behind the list's tag, or the text itself when it does not begin with one. */
static char *skip_tag(const DeliveryJob *job, char *text)
{
    char *at = text;
    for (const char *format = job->settings.subject_format; *format != '\0';) {
        at = match_piece(job, next_directive(&format), at);
        if (at == nullptr) return text;
    }
    return at;
}

/* The text behind a group in square brackets or parentheses and its blanks; null where none
   begins, where it is not closed, or where a bracket of the other kind closes first.  A byte of a
   two-byte character is no bracket. */
static char *skip_group(char *text)
{
    const char closing = *text == '[' ? ']' : *text == '(' ? ')' : '\0';
    if (closing == '\0') return nullptr;
    int mode = JIS_ASCII;
    for (char *at = text + 1; *at != '\0'; ++at) {
        const int shift = jis_shift_at(at);
        if (shift >= 0) {
            mode = shift;
            at += JIS_SHIFT_SIZE - 1;
        } else if (mode == JIS_ASCII) {
            if (*at == closing) return skip_space_tab(at + 1);
            if (*at == ']' || *at == ')') return nullptr;
        }
    }
    return nullptr;
}

static char *skip_re(char *text)
{
    return begins_nocase(text, "re:") ? skip_space_tab(text + 3) : nullptr;
}

/* Applies one skip for as long as it finds something. */
static char *skip_all(char *text, char *(*skip)(char *))
{
    for (char *next = skip(text); next != nullptr; next = skip(text))
        text = next;
    return text;
}

static char *skip_re_or_group(char *text)
{
    char *next = skip_re(text);
    return next == nullptr && force_remove_bracket == 1 ? skip_group(text) : next;
}

/* KEPT: a "Re:" behind the old tag goes only when one stood before it.
   Test: DetectSubfmt.ReAfterTheTagStaysWithoutOneBefore */
char *detect_subfmt(DeliveryJob *job, char *subject, int *re_flag, int mode)
{
    char *start = skip_space_tab(subject);
    char *text = skip_all(start, skip_re);
    const bool replied = text != start;
    if (!replied && force_remove_bracket != 0) text = skip_all(text, skip_group);

    text = skip_space_tab(skip_tag(job, text));
    if (!replied) return text;

    if (mode == 0) *re_flag = 1;
    return skip_all(text, skip_re_or_group);
}
