/* ENVELOPE: the fields of a header that clients list messages by. */
#include <string.h>

#include "archive/growing.h"
#include "archive/mime.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/sink.h"

namespace
{
enum AddressList { FROM, SENDER, REPLY_TO, TO, CC, BCC, ADDRESS_LISTS };

struct AddressField {
    AddressList list;
    char *value;
};

/* What was found; all of it lies in the header's text. */
struct Envelope {
    const char *date = nullptr, *subject = nullptr, *in_reply_to = nullptr, *message_id = nullptr;
    GrowingList<AddressField> addresses;
    uint32_t used[ADDRESS_LISTS] = {};
};

struct AddressRow {
    const char *prefix;
    AddressList list;
};

struct TextRow {
    const char *prefix;
    const char *Envelope::*value;
};
} // namespace

/* KEPT: all but one of the prefixes want a blank behind the colon.
   Test: Envelope.WantsABlankBehindTheColonOfAllFieldsButBcc */
static constexpr AddressRow address_rows[] = {
    {"From: ", FROM}, {"Sender: ", SENDER}, {"Reply-To: ", REPLY_TO},
    {"To: ", TO},     {"Cc: ", CC},         {"Bcc:", BCC},
};

static constexpr TextRow text_rows[] = {
    {"Subject: ", &Envelope::subject},
    {"In-Reply-To: ", &Envelope::in_reply_to},
    {"Message-Id: ", &Envelope::message_id},
};

static bool is_date(const char *text)
{
    int day, month, year;
    return analize_rfc822date(text, &day, &month, &year) == 1;
}

/* False without memory. */
static bool take_field(Envelope *envelope, char *field)
{
    const char *date = field_value(field, "Date: ");
    if (date != nullptr && is_date(date)) envelope->date = date;
    for (const TextRow &row : text_rows)
        if (const char *value = field_value(field, row.prefix)) envelope->*row.value = value;
    for (const AddressRow &row : address_rows)
        if (char *value = field_value(field, row.prefix)) {
            ++envelope->used[row.list];
            return envelope->addresses.add({row.list, value});
        }
    return true;
}

static bool take_fields(Envelope *envelope, char *header)
{
    FieldCursor cursor;
    start_fields(&cursor, header);
    while (char *field = next_field(&cursor))
        if (!take_field(envelope, field)) return false;
    return true;
}

/* The parser cuts the text up, and the first From may be printed three times: a copy each time. */
static void print_addresses_of(const char *value)
{
    HostPtr<char> copy(host_copy_text(value));
    if (copy.p != nullptr) list_parse_addr(copy.p);
}

static void print_address_list(const Envelope &envelope, AddressList list)
{
    const bool by_default = envelope.used[list] == 0 && (list == SENDER || list == REPLY_TO);
    const AddressList source = by_default ? FROM : list;
    if (envelope.used[source] == 0) return put_text("NIL ");
    put_text("(");
    for (size_t i = 0; i < envelope.addresses.count(); ++i) {
        const AddressField &field = envelope.addresses.items()[i];
        if (field.list != source) continue;
        print_addresses_of(field.value);
        if (by_default) break;
    }
    put_text(") ");
}

static void print_envelope(const Envelope &envelope)
{
    put_text("(");
    if (envelope.date != nullptr)
        out_printf("\"%s\" ", envelope.date);
    else
        put_text("NIL ");
    if (envelope.subject != nullptr)
        list_print_string(envelope.subject);
    else
        put_text("NIL");
    put_text(" ");
    for (int list = FROM; list < ADDRESS_LISTS; ++list)
        print_address_list(envelope, static_cast<AddressList>(list));
    if (envelope.in_reply_to != nullptr)
        out_printf("{%zu}\r\n%s ", strlen(envelope.in_reply_to), envelope.in_reply_to);
    else
        put_text("NIL ");
    if (envelope.message_id != nullptr)
        out_printf("\"%s\")", envelope.message_id);
    else
        put_text("NIL)");
}

int getenvelope(MessageBytes *bytes, uint32_t start, uint32_t header_length)
{
    KeepErrno keep;
    HostPtr<char> header(bytes->text(start, header_length));
    Envelope envelope;
    if (header.p == nullptr || !take_fields(&envelope, header.p)) {
        put_text("NIL");
        return 0;
    }
    print_envelope(envelope);
    return 1;
}

int list_getenvelope(int fd, uint32_t start, uint32_t header_length)
{
    MessageBytes bytes(fd);
    return getenvelope(&bytes, start, header_length);
}
