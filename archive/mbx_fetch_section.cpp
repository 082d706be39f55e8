/* The item BODY[...]: which section is asked for, whole or a slice of it. */
#include <string.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/sink.h"
#include "module/unix_sv.h"

/* -- what was asked for -- */

static const char *read_number(const char *text, uint32_t *value_out)
{
    uint64_t value = 0;
    for (; is_ascii_digit(static_cast<unsigned char>(*text)); ++text)
        if (value <= UINT32_MAX) value = value * 10 + static_cast<uint64_t>(*text - '0');
    *value_out = value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
    return text;
}

int getrange(const char *text, uint32_t *start_out, uint32_t *count_out)
{
    *start_out = *count_out = 0;
    if (*text != '<') return 0;
    const char *dot = read_number(text + 1, start_out);
    if (dot == text + 1 || *dot != '.') return 0;
    const char *end = read_number(dot + 1, count_out);
    return end != dot + 1 && *end == '>';
}

namespace
{
struct SectionItem {
    MailboxHandle *handle;
    int sequence;
    const IndexRecord *record;
    const char *text; /* as it came; what counts are the first length bytes, through "]" */
    int length;
    bool partial;
    uint32_t start, count;
};
} // namespace

/* KEPT: a partial specifier is believed, well formed or not.
   Test: FetchPartial.BelievesABrokenSpecifier */
static SectionItem take_section(MailboxHandle *handle, int sequence, const char *text)
{
    SectionItem item = {handle, sequence, message_record(handle, sequence), text, 0, false, 0, 0};
    const char *partial = strstr(text, "]<");
    item.partial = partial != nullptr;
    item.length = static_cast<int>(item.partial ? partial + 1 - text : strlen(text));
    if (item.partial) (void)getrange(partial + 1, &item.start, &item.count);
    return item;
}

/* What of length bytes the item wants; start is not beyond them. */
static uint32_t wanted(const SectionItem &item, uint32_t length)
{
    return item.count < length - item.start ? item.count : length - item.start;
}

/* -- answers -- */

/* "BODY[1]" or "BODY[1]<5>", as it was asked for. */
static void print_name(const SectionItem &item)
{
    out_printf("BODY[%.*s", item.length, item.text);
    if (item.partial) out_printf("<%u>", item.start);
}

static void print_empty(const SectionItem &item)
{
    out_printf("BODY[%.*s \"\"", item.length, item.text);
}

static void print_in_memory(const SectionItem &item, const char *text)
{
    const size_t size = strlen(text);
    const uint32_t length = size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
    print_name(item);
    if (item.partial && item.start > length) return put_text(" \"\"");
    const uint32_t sent = item.partial ? wanted(item, length) : length;
    out_printf(" {%u}\r\n", sent);
    put_bytes(text + item.start, sent);
}

/* -- BODY[] -- */

/* KEPT: a slice announces as many bytes as were asked for, however few there are.
   Test: FetchPartial.OfTheWholeMessageAnnouncesWhatWasAskedFor */
static void print_whole(const SectionItem &item)
{
    const MessageFile file(item.handle, item.sequence);
    const uint32_t size = item.record->size;
    put_text("BODY[]");
    if (item.partial) out_printf("<%u>", item.start);
    if (!file.is_open() || item.start > size) return put_text(" \"\"");
    out_printf(" {%u}\r\n", item.partial ? item.count : size);
    if (item.partial)
        send_range(file.fd(), item.start, wanted(item, size), size);
    else
        send_range(file.fd(), 0, WHOLE_FILE, size);
}

/* -- BODY[1.2] -- */

static void print_part(const SectionItem &item)
{
    const bool parsed = list_mbx_getcache(item.handle, item.sequence) == 1;
    if (!parsed) trace_sys(&g_logh, 3, 622, "mbx_fetch_body: mbx_getcache err");
    print_name(item);
    put_text(" ");
    if (!parsed) return put_text("\"\"");
    MessageCache *cache = item.handle->cache;
    if (item.partial)
        getsection_range(&cache->bytes, cache->parts, item.text, item.start, item.count);
    else
        getsection(&cache->bytes, cache->parts, item.text);
}

/* -- BODY[HEADER...] -- */

/* The message's header, or null with errno. */
static char *load_header(const SectionItem &item)
{
    MessageFile file(item.handle, item.sequence);
    return file.is_open() ? file.bytes()->text(0, item.record->header_size) : nullptr;
}

static void print_fields(const SectionItem &item)
{
    const char *list = nullptr;
    int count = 0;
    const FieldFilter filter = field_filter(item.text, &list);
    HostPtr<char *> names(parse_header_list(list, &count));
    if (names.p == nullptr) return print_empty(item);
    HostPtr<char> header(load_header(item));
    GrowingText text;
    if (header.p == nullptr ||
        !filter_fields(filter, names.p, static_cast<size_t>(count), header.p, &text))
        return print_empty(item);
    print_in_memory(item, text.items());
}

static void print_header(const SectionItem &item)
{
    HostPtr<char> header(load_header(item));
    if (header.p != nullptr) return print_in_memory(item, header.p);
    if (errno == ENOMEM) return print_empty(item);
    put_text("BODY[HEADER] \"\"");
}

/* -- BODY[TEXT] -- */

static void print_text(const SectionItem &item)
{
    const MessageFile file(item.handle, item.sequence);
    const uint32_t length = text_size(item.record);
    if (!file.is_open()) return put_text("BODY[TEXT] \"\"");
    if (!item.partial) {
        out_printf("BODY[TEXT] {%u}\r\n", length);
        return send_range(file.fd(), item.record->header_size, WHOLE_FILE, item.record->size);
    }
    if (item.start > length) {
        print_name(item);
        return put_text(" \"\"");
    }
    const uint32_t sent = wanted(item, length);
    out_printf("BODY[TEXT]<%u> {%u}\r\n", item.start, sent);
    send_text(file.fd(), static_cast<uint64_t>(item.record->header_size) + item.start, sent);
}

/* -- dispatch -- */

static void print_unknown(const SectionItem &item)
{
    trace_sys(&g_logh, 3, 623, "mbx_mimebody: unknown parameter");
    print_empty(item);
}

namespace
{
struct Section {
    const char *keyword;
    void (*print)(const SectionItem &item);
};
} // namespace

/* The first that the text begins with. */
static constexpr Section sections[] = {
    {FIELDS_KEYWORD, print_fields}, /* and HEADER.FIELDS.NOT */
    {"HEADER", print_header},
    {"TEXT", print_text},
    {"", print_unknown},
};

void print_section_item(MailboxHandle *handle, int sequence, const char *text)
{
    KeepErrno keep;
    const SectionItem item = take_section(handle, sequence, text);
    if (item.length == 1 && text[0] == ']') return print_whole(item);
    if (is_ascii_digit(static_cast<unsigned char>(text[0]))) return print_part(item);
    for (const Section &section : sections)
        if (begins_nocase(text, section.keyword)) return section.print(item);
}

void list_mbx_fetch_mimebody(MailboxHandle *handle, int sequence, const char *section)
{
    begin_operation(handle);
    print_section_item(handle, sequence, section);
    out_flush();
}
