/* Lists of header fields, and headers with only these or without them. */
#include <stdio.h>
#include <string.h>

#include "archive/fetch.h"
#include "module/host_mem.h"

/* -- list -- */

namespace
{
/* Names as they are read.  Without a table they are only counted. */
struct NameList {
    char **table = nullptr; /* where each begins */
    char *text = nullptr;   /* each with its NUL */
    size_t count = 0, size = 0;

    void begin()
    {
        if (table != nullptr) table[count] = text + size;
        ++count;
    }
    void put(char c)
    {
        if (text != nullptr) text[size] = c;
        ++size;
    }
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

/* Reads all names; the ")" behind them, or the end. */
static const char *read_names(const char *text, NameList *names)
{
    while (*text != ')' && *text != '\0') {
        text = read_name(text, names);
        if (*text == ' ') ++text;
    }
    return text;
}

char **parse_header_list(const char *text, int *count_out)
{
    *count_out = 0;
    if (*text != '(') return nullptr;
    NameList counted;
    if (*read_names(text + 1, &counted) != ')' || counted.count == 0) return nullptr;

    const size_t table = (counted.count + 1) * sizeof(char *);
    char **block = static_cast<char **>(host_allocate(table + counted.size));
    if (block == nullptr) return nullptr;
    NameList names;
    names.table = block;
    names.text = reinterpret_cast<char *>(block + counted.count + 1);
    (void)read_names(text + 1, &names);
    block[names.count] = nullptr;
    *count_out = static_cast<int>(names.count);
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

/* "Name: ", cut where it does not fit. */
#define PATTERN_MAX 62

namespace
{
/* What fields may begin with, as a tree: each node is a byte behind those of its parents.  A
   million names against a million lines then take one walk for each of them. */
class Patterns
{
  public:
    explicit Patterns(bool ignore_case) : ignore_case_(ignore_case) {}
    [[nodiscard]] bool load(char *const *names, size_t count);
    bool match(const char *line, size_t length) const;

  private:
    struct Node {
        uint32_t child;       /* one of them; 0 none: the root is nobody's */
        uint32_t siblings[2]; /* by the next bit of the byte that is looked for */
        char byte;
        bool complete; /* a pattern ends here */
    };

    char fold(char c) const
    {
        return ignore_case_ ? static_cast<char>(ascii_lower(static_cast<unsigned char>(c))) : c;
    }
    const uint32_t *find_child(uint32_t parent, char byte) const;
    [[nodiscard]] bool add(const char *pattern);

    bool ignore_case_;
    GrowingList<Node> nodes_; /* the root first; empty without a pattern */
};
} // namespace

/* Where the child with this byte stands, or would: nine are looked at and no more, for each former
   one has decided by another bit. */
const uint32_t *Patterns::find_child(uint32_t parent, char byte) const
{
    const Node *nodes = nodes_.items();
    const uint32_t *child = &nodes[parent].child;
    for (unsigned bits = static_cast<unsigned char>(byte); *child != 0; bits >>= 1) {
        if (nodes[*child].byte == byte) break;
        child = &nodes[*child].siblings[bits & 1];
    }
    return child;
}

/* What begins with a pattern that is there already adds nothing. */
bool Patterns::add(const char *pattern)
{
    uint32_t at = 0;
    for (; *pattern != '\0' && !nodes_.items()[at].complete; ++pattern) {
        if (!nodes_.reserve(1)) return false;
        const char byte = fold(*pattern);
        uint32_t *child = const_cast<uint32_t *>(find_child(at, byte));
        if (*child == 0) {
            *child = static_cast<uint32_t>(nodes_.count());
            (void)nodes_.add({0, {0, 0}, byte, false}); /* there is room */
        }
        at = *child;
    }
    nodes_.items()[at].complete = true;
    return true;
}

bool Patterns::load(char *const *names, size_t count)
{
    if (count > 0 && !nodes_.add({})) return false;
    for (size_t i = 0; i < count; ++i) {
        char pattern[PATTERN_MAX + 1];
        snprintf(pattern, sizeof(pattern), "%s: ", names[i]);
        if (!add(pattern)) return false;
    }
    return true;
}

bool Patterns::match(const char *line, size_t length) const
{
    if (nodes_.count() == 0) return false;
    uint32_t at = 0;
    for (size_t i = 0; i < length && !nodes_.items()[at].complete; ++i) {
        at = *find_child(at, fold(line[i]));
        if (at == 0) return false;
    }
    return nodes_.items()[at].complete;
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
