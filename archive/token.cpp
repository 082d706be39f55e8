/* Tokenizers of command lines: astrings and message sets. */
#include "archive/token.h"

#include <stddef.h>
#include <string.h>

#include "mlist/token.h"
#include "module/ascii.h"

/* Where the calling thread is.  Not in the Thread context: a line may be read across deliveries. */
struct TokenState {
    char *astring; /* the next astring, null at the end of the line */
    char *set;     /* the next element of the set, null when none is open */
    uint32_t high;
    uint64_t next; /* the next number of the element */
};

static thread_local TokenState state;

void set_astring_position(char *text)
{
    state.astring = text;
}

char *astring_position()
{
    return state.astring;
}

/* -- astrings -- */

/* Resolves a quoted string in place.  null when it has no end. */
static char *take_quoted(char *quote)
{
    char *token = quote + 1;
    char *out = token;
    const char *in = token;
    for (; *in != '"'; ++in) {
        if (*in == '\\') ++in;
        if (*in == '\0') {
            state.astring = nullptr;
            return nullptr;
        }
        *out++ = *in;
    }
    state.astring = in[1] == ' ' ? token + (in - token) + 2 : nullptr;
    *out = '\0';
    return token;
}

static char *take_atom(char *atom)
{
    char *end = atom + strcspn(atom, " \r\n");
    state.astring = *end == ' ' ? end + 1 : nullptr;
    *end = '\0';
    return atom;
}

char *list_gettoken_astring(char *text)
{
    if (text != nullptr) state.astring = text;
    char *at = state.astring;
    if (at == nullptr) return nullptr;
    switch (*at) {
    case '\0':
        state.astring = nullptr;
        return nullptr;
    case '"':
        return take_quoted(at);
    case '{': /* KEPT: literals are the host's to resolve; the place stays.
                 Test: Astring.ALiteralStaysWhereItIs */
        return nullptr;
    default:
        return take_atom(at);
    }
}

/* -- message sets -- */

/* Digits up to the maximum.  false when the number is larger. */
static bool read_number(SetReader *reader, uint32_t *number_out)
{
    uint64_t number = 0;
    for (; is_ascii_digit(static_cast<unsigned char>(*reader->next)); ++reader->next) {
        number = number * 10 + static_cast<unsigned>(*reader->next - '0');
        if (number > reader->maximum) return false;
    }
    *number_out = static_cast<uint32_t>(number);
    return true;
}

/* What follows ":".  KEPT: a line end is accepted here and not behind a single number.
   Test: MessageSet.ALineEndIsAcceptedOnlyBehindARange */
static SetElement read_range_end(SetReader *reader, uint32_t *high_out)
{
    if (*reader->next == '*') {
        *high_out = reader->maximum;
        ++reader->next;
    } else if (!read_number(reader, high_out)) {
        return SetElement::error;
    }
    switch (*reader->next) {
    case ',':
        ++reader->next;
        return SetElement::range;
    case '\0':
    case ' ':
    case '\r':
    case '\n':
        return SetElement::range;
    default:
        return SetElement::error;
    }
}

static SetElement read_first(SetReader *reader, uint32_t *low_out, uint32_t *high_out)
{
    if (!read_number(reader, low_out)) return SetElement::error;
    *high_out = *low_out;
    switch (*reader->next) {
    case ':':
        ++reader->next;
        return read_range_end(reader, high_out);
    case ',':
        ++reader->next;
        return SetElement::range;
    case '\0':
    case ' ':
        return SetElement::range;
    default:
        return SetElement::error;
    }
}

SetElement read_element(SetReader *reader, uint32_t *low_out, uint32_t *high_out)
{
    if (*reader->next == '\0' || *reader->next == ' ') return SetElement::end;
    return read_first(reader, low_out, high_out);
}

static uint32_t end_set(char *astring)
{
    state.set = nullptr;
    state.astring = astring;
    return 0;
}

/* Reads the element at the set's place and hands out its first number. */
static uint32_t start_element(uint32_t maximum)
{
    SetReader reader = {state.set, maximum};
    uint32_t low = 0, high = 0;
    if (read_first(&reader, &low, &high) != SetElement::range) return end_set(nullptr);
    state.set += reader.next - state.set;
    state.high = high;
    state.next = uint64_t{low} + 1;
    return low;
}

uint32_t list_gettoken_msgset(char *text, uint32_t maximum)
{
    if (text != nullptr) {
        state.set = text;
        return start_element(maximum);
    }
    if (state.set == nullptr) return end_set(nullptr);
    if (state.next <= state.high) return static_cast<uint32_t>(state.next++);
    if (*state.set == ' ') return end_set(state.set + 1);
    if (*state.set == '\0') return end_set(nullptr);
    return start_element(maximum);
}
