/* One FETCH response: which item is written how. */
#include <stdint.h>
#include <string.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "module/sink.h"
#include "module/unix_sv.h"

/* -- macros -- */

static void print_separated(MailboxHandle *handle, int sequence, const ItemWriter *writers,
                            size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) put_text(" ");
        writers[i](handle, sequence);
    }
}

/* KEPT: ALL and FAST come without FLAGS.  Test: FetchMacros.LeaveTheFlagsOutOfAllAndFast */
static constexpr ItemWriter all_items[] = {print_internaldate, print_rfc822_size, print_envelope};
static constexpr ItemWriter full_items[] = {print_flags, print_internaldate, print_rfc822_size,
                                            print_envelope, print_body};

static void print_all(MailboxHandle *handle, int sequence)
{
    print_separated(handle, sequence, all_items, 3);
}

static void print_fast(MailboxHandle *handle, int sequence)
{
    print_separated(handle, sequence, all_items, 2);
}

static void print_full(MailboxHandle *handle, int sequence)
{
    print_separated(handle, sequence, full_items, 5);
}

/* -- the items -- */

namespace
{
struct Item {
    const char *name;
    ItemWriter print; /* null: the name is a prefix, and a section follows it */
    bool sets_seen;
};
} // namespace

/* KEPT: RFC822.TEXT does not set \Seen.  Test: FetchSeen.IsSetByTextsFetchedWithoutPeek */
static constexpr Item fetch_items[] = {
    {"ALL", print_all, false},
    {"BODY", print_body, false},
    {"BODY[", nullptr, true},
    {"BODY.PEEK[", nullptr, false},
    {"BODYSTRUCTURE", print_bodystructure, false},
    {"ENVELOPE", print_envelope, false},
    {"FAST", print_fast, false},
    {"FLAGS", print_flags, false},
    {"FULL", print_full, false},
    {"INTERNALDATE", print_internaldate, false},
    {"RFC822", print_rfc822, true},
    {"RFC822.HEADER", print_rfc822_header, false},
    {"RFC822.SIZE", print_rfc822_size, false},
    {"RFC822.TEXT", print_rfc822_text, false},
    {"UID", print_uid, false},
};

static const Item *find_item(const char *text)
{
    for (const Item &item : fetch_items)
        if (item.print != nullptr ? same_text_nocase(text, item.name)
                                  : begins_nocase(text, item.name))
            return &item;
    return nullptr;
}

/* KEPT: the number in the log line is the text's address.
   Test: Fetch.AnswersNilForAnUnknownItemAndLogsIt */
static void print_unknown(const char *text)
{
    trace_sys(&g_logh, 3, 619, "mbx_fetch: invalid item %d",
              static_cast<int>(reinterpret_cast<intptr_t>(text)));
    put_text(text);
    put_text(" NIL");
}

/* Whether the item makes the message \Seen. */
static bool print_item(MailboxHandle *handle, int sequence, const char *text)
{
    const Item *item = find_item(text);
    if (item == nullptr) {
        print_unknown(text);
        return false;
    }
    if (item->print != nullptr)
        item->print(handle, sequence);
    else
        print_section_item(handle, sequence, text + strlen(item->name));
    return item->sets_seen;
}

/* -- the response -- */

static void forget_other_message(MailboxHandle *handle, int sequence)
{
    if (handle->cache != nullptr && handle->cache->sequence != sequence) list_mbx_freecache(handle);
}

/* Marks the message \Seen in the handle and tells so. */
static void set_seen(MailboxHandle *handle, int sequence, bool first)
{
    IndexRecord *record = &handle->index[sequence];
    if (record->flags & (MESSAGE_VANISHED | MESSAGE_SEEN)) return;
    record->flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    handle->mode |= MAILBOX_FORCE_CHECK;
    if (!first) put_text(" ");
    print_flags(handle, sequence);
}

static void print_response(MailboxHandle *handle, int sequence, char **items)
{
    bool seen = false, first = true;
    out_printf("* %d FETCH (", sequence);
    for (; items != nullptr && *items != nullptr; ++items) {
        if (!first) put_text(" ");
        first = false;
        if (print_item(handle, sequence, *items)) seen = true;
    }
    if (seen) set_seen(handle, sequence, first);
    put_text(")\r\n");
}

static bool has_message(const MailboxHandle *handle, int sequence)
{
    return handle != nullptr && handle->index != nullptr && sequence >= 1 &&
           static_cast<uint32_t>(sequence) < record_count(handle->index);
}

void mlmbx_fetch(MailboxHandle *handle, int sequence, char **items)
{
    begin_operation(handle);
    if (has_message(handle, sequence)) {
        forget_other_message(handle, sequence);
        print_response(handle, sequence, items);
    } else {
        out_printf("* NO fetch %d fail, out of range\r\n", sequence);
    }
    out_flush();
}
