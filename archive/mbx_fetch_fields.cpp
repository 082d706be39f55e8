/* Lists of header fields, and headers with only these or without them. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "archive/fetch.h"
#include "module/host_mem.h"

/* -- list -- */

namespace
{
/* Names as they are read, and where each begins. */
struct NameList {
    GrowingText text;
    GrowingList<uint32_t> starts;
    bool good = true;

    void begin() { good = good && starts.add(static_cast<uint32_t>(text.count())); }
    void put(char c) { good = good && text.add(c); }
};
} // namespace

/* Reads one name, up to a blank, ")" or the end, where it answers. */
static const char *read_name(const char *text, NameList *names)
{
    const bool strip = *text == '"';
    names->begin();
    for (bool quoted = false; *text != '\0'; ++text) {
        if (!quoted && (*text == ' ' || *text == ')')) break;
        if (*text == '\\' && text[1] != '\0') {
            if (!strip) names->put(*text);
            names->put(*++text);
        } else if (*text == '"') {
            quoted = !quoted;
            if (!strip) names->put(*text);
        } else {
            names->put(*text);
        }
    }
    names->put('\0');
    return text;
}

/* Pointers and names as one block. */
static char **as_one_block(const NameList &names)
{
    const size_t count = names.starts.count();
    const size_t table = (count + 1) * sizeof(char *);
    char **block = static_cast<char **>(host_allocate(table + names.text.count()));
    if (block == nullptr) return nullptr;
    char *text = reinterpret_cast<char *>(block + count + 1);
    memcpy(text, names.text.items(), names.text.count());
    for (size_t i = 0; i < count; ++i)
        block[i] = text + names.starts.items()[i];
    block[count] = nullptr;
    return block;
}

char **parse_header_list(const char *text, int *count_out)
{
    *count_out = 0;
    if (*text != '(') return nullptr;
    NameList names;
    ++text;
    while (*text != ')' && *text != '\0') {
        text = read_name(text, &names);
        if (*text == ' ') ++text;
    }
    if (*text != ')' || !names.good || names.starts.count() == 0) return nullptr;
    char **block = as_one_block(names);
    if (block != nullptr) *count_out = static_cast<int>(names.starts.count());
    return block;
}

FieldFilter field_filter(const char *section, const char **list_out)
{
    const size_t length = strlen(section);
    FieldFilter filter = FieldFilter::NONE;
    size_t list = length;
    if (begins_nocase(section, FIELDS_NOT_KEYWORD)) {
        filter = FieldFilter::DROP;
        list = strlen(FIELDS_NOT_KEYWORD " ");
    } else if (begins_nocase(section, FIELDS_KEYWORD)) {
        filter = FieldFilter::KEEP;
        list = strlen(FIELDS_KEYWORD " ");
    }
    *list_out = section + (list < length ? list : length);
    return filter;
}

/* -- filter -- */

/* "Name: " with its NUL, cut where it does not fit. */
#define PATTERN_SIZE 63

namespace
{
struct Pattern {
    char text[PATTERN_SIZE];
    size_t length;
};

/* What fields may begin with, in order and none the beginning of another, so that the one that a
   line begins with, if any, is the last that is not above it.  Many names against many lines then
   take no longer than they have to. */
class Patterns
{
  public:
    explicit Patterns(bool ignore_case) : ignore_case_(ignore_case) {}
    [[nodiscard]] bool load(char *const *names, size_t count);
    bool match(const char *line, size_t length) const;

  private:
    static int compare(const void *left, const void *right);
    unsigned char fold(char c) const
    {
        const unsigned char byte = static_cast<unsigned char>(c);
        return ignore_case_ ? ascii_lower(byte) : byte;
    }
    int order(const Pattern &pattern, const char *line, size_t length) const;
    void drop_longer_ones();

    bool ignore_case_;
    GrowingList<Pattern> patterns_;
    size_t count_ = 0;
};
} // namespace

int Patterns::compare(const void *left, const void *right)
{
    return strcmp(static_cast<const Pattern *>(left)->text,
                  static_cast<const Pattern *>(right)->text);
}

void Patterns::drop_longer_ones()
{
    Pattern *patterns = patterns_.items();
    for (size_t i = 0; i < patterns_.count(); ++i) {
        if (count_ > 0) {
            const Pattern &last = patterns[count_ - 1];
            if (memcmp(patterns[i].text, last.text, last.length) == 0) continue;
        }
        patterns[count_++] = patterns[i];
    }
}

bool Patterns::load(char *const *names, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        Pattern pattern = {};
        snprintf(pattern.text, sizeof(pattern.text), "%s: ", names[i]);
        pattern.length = strlen(pattern.text);
        for (char &c : pattern.text)
            c = static_cast<char>(fold(c));
        if (!patterns_.add(pattern)) return false;
    }
    if (patterns_.count() == 0) return true;
    qsort(patterns_.items(), patterns_.count(), sizeof(Pattern), compare);
    drop_longer_ones();
    return true;
}

/* Below 0: the pattern comes before the line; 0: the line begins with it. */
int Patterns::order(const Pattern &pattern, const char *line, size_t length) const
{
    for (size_t i = 0; i < pattern.length; ++i) {
        if (i == length) return 1;
        const int difference =
            static_cast<int>(static_cast<unsigned char>(pattern.text[i])) - fold(line[i]);
        if (difference != 0) return difference;
    }
    return 0;
}

bool Patterns::match(const char *line, size_t length) const
{
    size_t low = 0, high = count_;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        const int found = order(patterns_.items()[middle], line, length);
        if (found == 0) return true;
        if (found < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return false;
}

/* Behind the CR LF that ends the field, or the end of the text. */
static const char *end_of_field(const char *text)
{
    while ((text = strstr(text, "\r\n")) != nullptr) {
        text += 2;
        if (!is_blank(static_cast<unsigned char>(*text))) return text;
    }
    return nullptr;
}

static bool keep_fields(const Patterns &patterns, const char *header, GrowingText *out)
{
    while (*header != '\0') {
        const char *next = end_of_field(header);
        const size_t length = next != nullptr ? static_cast<size_t>(next - header) : strlen(header);
        if (patterns.match(header, length) && !out->append(header, length)) return false;
        header += length;
    }
    return out->text("\r\n") && out->finish();
}

static const char *end_of_line(const char *text)
{
    const char *feed = strchr(text, '\n');
    return feed != nullptr ? feed + 1 : text + strlen(text);
}

static bool drop_fields(const Patterns &patterns, const char *header, GrowingText *out)
{
    while (*header != '\0') {
        const char *next = end_of_line(header);
        if (patterns.match(header, static_cast<size_t>(next - header))) {
            while (is_blank(static_cast<unsigned char>(*next)))
                next = end_of_line(next);
        } else if (!out->append(header, static_cast<size_t>(next - header))) {
            return false;
        }
        header = next;
    }
    return out->finish();
}

/* KEPT: names are told apart by case when they are dropped and not when they are kept, and a field
   without a blank behind its colon is none of either.
   Test: FetchHeaderFields.DropsFieldsByNameInTheirCaseOnly */
bool filter_fields(FieldFilter filter, char *const *names, size_t count, const char *header,
                   GrowingText *out)
{
    Patterns patterns(filter == FieldFilter::KEEP);
    if (!patterns.load(names, count)) return false;
    return filter == FieldFilter::KEEP ? keep_fields(patterns, header, out)
                                       : drop_fields(patterns, header, out);
}
