/* Sections of a parsed message: BODY[1.2.MIME] and the like. */
#include <string.h>

#include "archive/fetch.h"
#include "module/guards.h"
#include "module/host_functions.h"
#include "module/host_mem.h"
#include "module/sink.h"
#include "module/unix_sv.h"

namespace
{
/* Where a section text leads. */
struct Choice {
    enum Kind { RANGE, FIELDS, EMPTY, NONE } kind;
    uint64_t start = 0, length = 0; /* RANGE, FIELDS: in the message file */
    const char *section = nullptr;  /* FIELDS: the text from "HEADER.FIELDS" on */
};

struct Slice {
    bool partial;
    uint32_t start, count;
};
} // namespace

static const Choice empty_choice = {Choice::EMPTY};
static const Choice no_choice = {Choice::NONE};

static Choice header_of(const PartNode *part)
{
    return {Choice::RANGE, part->start, part->header_length, nullptr};
}

static Choice body_of(const PartNode *part)
{
    return {Choice::RANGE, static_cast<uint64_t>(part->start) + part->header_length,
            part->body_length, nullptr};
}

/* -- the walk -- */

namespace
{
/* A step of the walk ends it with a choice, or goes on in another part. */
struct Step {
    const PartNode *next; /* null: ended */
    Choice choice;
};
} // namespace

static Step end_with(const Choice &choice)
{
    return {nullptr, choice};
}

static bool is_letter(char c, char letter)
{
    return ascii_lower(static_cast<unsigned char>(c)) == letter;
}

static const PartNode *child_at(const PartNode *part, uint32_t number)
{
    return number >= 1 && number <= part->child_count ? part->children[number - 1] : nullptr;
}

/* Behind "number." where there is such a child. */
static Step into_child(const PartNode *child, const char *rest)
{
    if (child == nullptr) return end_with(no_choice); /* it could not be parsed */
    if (child->enclosed == nullptr) return {child, {}};
    if (is_letter(*rest, 'm')) return end_with(header_of(child));
    return {child->enclosed, {}};
}

/* Behind "1." where there are no children: a part that is not one of several is number 1 of
   itself. */
static Step into_itself(const PartNode *part, const char *rest)
{
    if (is_letter(*rest, 'm')) return end_with(header_of(part));
    const bool known =
        (*rest >= '1' && *rest <= '9') || is_letter(*rest, 'h') || is_letter(*rest, 't');
    if (!known || part->enclosed == nullptr) return end_with(empty_choice);
    return {part->enclosed, {}};
}

static Step behind_dot(const PartNode *part, uint32_t number, const char *rest)
{
    if (number >= 1 && number <= part->child_count) return into_child(child_at(part, number), rest);
    return number <= 1 ? into_itself(part, rest) : end_with(empty_choice);
}

static Choice header_section(const PartNode *part, const char *section)
{
    Choice choice = header_of(part);
    const char *list = nullptr;
    if (field_filter(section, &list) == FieldFilter::NONE) return choice;
    choice.kind = Choice::FIELDS;
    choice.section = section;
    return choice;
}

static Choice whole_part(const PartNode *part, uint32_t number)
{
    const PartNode *child = child_at(part, number);
    if (child != nullptr) return body_of(child);
    return number == 1 && part->child_count == 0 ? body_of(part) : no_choice;
}

/* What the character ends the walk with. */
static Choice ended_by(const PartNode *part, uint32_t number, const char *text)
{
    switch (ascii_lower(static_cast<unsigned char>(*text))) {
    case 'h':
        return header_section(part, text);
    case 'm':
        return header_of(part);
    case 't':
        return body_of(part);
    case ']':
        return whole_part(part, number);
    default:
        return no_choice;
    }
}

static Choice choose(const PartNode *part, const char *text)
{
    uint64_t number = 0;
    for (;; ++text) {
        const uint32_t child = number > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(number);
        if (is_ascii_digit(static_cast<unsigned char>(*text))) {
            if (number <= UINT32_MAX) number = number * 10 + static_cast<uint64_t>(*text - '0');
            continue;
        }
        if (*text != '.') return ended_by(part, child, text);
        const Step step = behind_dot(part, child, text + 1);
        if (step.next == nullptr) return step.choice;
        part = step.next;
        number = 0;
    }
}

/* -- printing -- */

static void print_empty()
{
    put_text("\"\"");
}

/* The length of the literal, and its announcement; false when start is beyond length, and the empty
   string is the answer. */
static bool announce(uint64_t length, const Slice &slice, uint64_t *length_out)
{
    *length_out = length;
    if (slice.partial) {
        if (slice.start > length) {
            print_empty();
            return false;
        }
        *length_out = slice.count < length - slice.start ? slice.count : length - slice.start;
    }
    out_printf("{%llu}\r\n", static_cast<unsigned long long>(*length_out));
    return true;
}

/* No more than the file has, so that what is announced is there. */
static void print_range(MessageBytes *bytes, const Choice &choice, const Slice &slice)
{
    uint64_t length;
    if (!announce(bytes->there(choice.start, choice.length), slice, &length)) return;
    out_flush(); /* the host may write past our sink's buffer */
    (void)copy_to_sink(bytes->fd(), static_cast<off_t>(choice.start + slice.start), length);
}

/* The fields that the section lists; false when there is nothing to show. */
static bool filter_header(MessageBytes *bytes, const Choice &choice, GrowingText *out)
{
    const char *list = nullptr;
    int count = 0;
    const FieldFilter filter = field_filter(choice.section, &list);
    HostPtr<char *> names(parse_header_list(list, &count));
    if (names.p == nullptr && filter == FieldFilter::KEEP) return false;
    HostPtr<char> header(bytes->text(choice.start, choice.length));
    return header.p != nullptr &&
           filter_fields(filter, names.p, static_cast<size_t>(count), header.p, out);
}

static void print_filtered(MessageBytes *bytes, const Choice &choice, const Slice &slice)
{
    GrowingText text;
    uint64_t length;
    if (!filter_header(bytes, choice, &text)) return print_empty();
    if (announce(text.count() - 1, slice, &length)) put_bytes(text.items() + slice.start, length);
}

/* Whether the section is there. */
static bool print_section(MessageBytes *bytes, const PartNode *part, const char *section,
                          const Slice &slice)
{
    if (part == nullptr) return false;
    const Choice choice = choose(part, section);
    switch (choice.kind) {
    case Choice::RANGE:
        print_range(bytes, choice, slice);
        return true;
    case Choice::FIELDS:
        print_filtered(bytes, choice, slice);
        return true;
    case Choice::EMPTY:
        print_empty();
        return true;
    case Choice::NONE:
        break;
    }
    return false;
}

/* KEPT: a section that there is not has an empty value, a slice of one has none at all.
   Test: Section.AnswersAMissingSectionWithAnEmptyStringAndASliceOfItWithNothing */
void getsection(MessageBytes *bytes, const PartNode *part, const char *section)
{
    KeepErrno keep;
    if (print_section(bytes, part, section, {false, 0, 0})) return;
    trace_sys(&g_logh, 3, 633, "getsection: section err");
    print_empty();
}

void getsection_range(MessageBytes *bytes, const PartNode *part, const char *section,
                      uint32_t start, uint32_t count)
{
    KeepErrno keep;
    if (print_section(bytes, part, section, {true, start, count})) return;
    trace_sys(&g_logh, 3, 634, "getsection_range: section err");
}

void list_getsection(int fd, const PartNode *part, const char *section)
{
    MessageBytes bytes(fd);
    getsection(&bytes, part, section);
}

void list_getsection_range(int fd, const PartNode *part, const char *section, uint32_t start,
                           uint32_t count)
{
    MessageBytes bytes(fd);
    getsection_range(&bytes, part, section, start, count);
}
