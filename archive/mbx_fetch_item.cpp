/* The items of FETCH that are no sections. */
#include <time.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "module/guards.h"
#include "module/os.h"
#include "module/sink.h"
#include "module/unix_sv.h"

static bool is_vanished(const IndexRecord *record)
{
    return (record->flags & MESSAGE_VANISHED) != 0;
}

/* -- from the index alone -- */

void print_flags(MailboxHandle *handle, int sequence)
{
    char item[FLAGS_ITEM_SIZE];
    put_text(flags_item(item, message_record(handle, sequence)->flags));
}

void print_rfc822_size(MailboxHandle *handle, int sequence)
{
    const IndexRecord *record = message_record(handle, sequence);
    out_printf("RFC822.SIZE %u", is_vanished(record) ? 0 : record->size);
}

void print_uid(MailboxHandle *handle, int sequence)
{
    out_printf("UID %u", message_record(handle, sequence)->uid);
}

/* -- from the file's status -- */

/* False when there is no such file, or its time is beyond a calendar's. */
static bool message_time(const MailboxHandle *handle, uint32_t uid, struct tm *time_out)
{
    char name[MBX_NAME_SIZE];
    struct stat status;
    return message_name(name, handle->path, uid) == 0 && os->stat(name, &status) == 0 &&
           gmtime_r(&status.st_mtime, time_out) != nullptr;
}

void print_internaldate(MailboxHandle *handle, int sequence)
{
    KeepErrno keep;
    const IndexRecord *record = message_record(handle, sequence);
    struct tm t;
    if (is_vanished(record)) return put_text("INTERNALDATE \"00-Jan-0000 00:00:00 +0000\"");
    if (!message_time(handle, record->uid, &t)) return put_text("INTERNALDATE NIL");
    out_printf("INTERNALDATE \"%02d-%s-%04d %02d:%02d:%02d +0000\"", t.tm_mday,
               month_names[t.tm_mon], t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
}

/* -- from the file's text -- */

/* KEPT: the number of bytes announced is the index's, the bytes are the file's.
   Test: FetchRfc822.AnnouncesTheSizeOfTheIndexAndSendsTheFile */
static void print_literal(MailboxHandle *handle, int sequence, const char *name, uint32_t announced,
                          uint32_t start, uint64_t length)
{
    KeepErrno keep;
    if (!is_vanished(message_record(handle, sequence))) {
        const MessageFile file(handle, sequence);
        if (file.is_open()) {
            out_printf("%s {%u}\r\n", name, announced);
            return send_range(file.fd(), start, length, message_record(handle, sequence)->size);
        }
    }
    out_printf("%s \"\"", name);
}

void print_rfc822(MailboxHandle *handle, int sequence)
{
    const uint32_t size = message_record(handle, sequence)->size;
    print_literal(handle, sequence, "RFC822", size, 0, WHOLE_FILE);
}

void print_rfc822_header(MailboxHandle *handle, int sequence)
{
    const uint32_t size = message_record(handle, sequence)->header_size;
    print_literal(handle, sequence, "RFC822.HEADER", size, 0, size);
}

void print_rfc822_text(MailboxHandle *handle, int sequence)
{
    const IndexRecord *record = message_record(handle, sequence);
    print_literal(handle, sequence, "RFC822.TEXT", text_size(record), record->header_size,
                  WHOLE_FILE);
}

/* -- from the parsed message -- */

static bool is_at_hand(MailboxHandle *handle, int sequence)
{
    return list_mbx_getcache(handle, sequence) == 1;
}

void print_envelope(MailboxHandle *handle, int sequence)
{
    KeepErrno keep;
    const bool vanished = is_vanished(message_record(handle, sequence));
    if (!vanished && is_at_hand(handle, sequence)) {
        const PartNode *root = handle->cache->parts;
        put_text("ENVELOPE ");
        (void)getenvelope(&handle->cache->bytes, root->start, root->header_length);
        return;
    }
    if (!vanished) trace_sys(&g_logh, 3, 624, "mbx_fetch envelope: mbx_getcache fail");
    put_text("ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)");
}

void print_body(MailboxHandle *handle, int sequence)
{
    KeepErrno keep;
    const bool vanished = is_vanished(message_record(handle, sequence));
    if (!vanished && is_at_hand(handle, sequence)) {
        put_text("BODY ");
        return getbody(&handle->cache->bytes, handle->cache->parts, 0);
    }
    if (!vanished) trace_sys(&g_logh, 3, 620, "mbx_fetch_body: mbx_getcache err");
    put_text("BODY (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 0 0)");
}

void print_bodystructure(MailboxHandle *handle, int sequence)
{
    KeepErrno keep;
    const bool vanished = is_vanished(message_record(handle, sequence));
    if (!vanished && is_at_hand(handle, sequence)) {
        put_text("BODYSTRUCTURE ");
        return getbody(&handle->cache->bytes, handle->cache->parts, 1);
    }
    if (!vanished) trace_sys(&g_logh, 3, 621, "mbx_fetch_body: mbx_getcache err");
    put_text("BODYSTRUCTURE (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 0 0 NIL NIL NIL)");
}

/* -- as operations of their own -- */

void begin_operation(MailboxHandle *handle)
{
    if (handle != nullptr) end_open_transaction(mailbox_of(handle));
}

static void whole_operation(MailboxHandle *handle, int sequence, ItemWriter print)
{
    begin_operation(handle);
    print(handle, sequence);
    out_flush();
}

void list_mbx_fetch_flags(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_flags);
}

void list_mbx_fetch_internaldate(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_internaldate);
}

void list_mbx_fetch_rfc822(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_rfc822);
}

void list_mbx_fetch_rfc822_header(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_rfc822_header);
}

void list_mbx_fetch_rfc822_text(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_rfc822_text);
}

void list_mbx_fetch_rfc822_size(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_rfc822_size);
}

void list_mbx_fetch_uid(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_uid);
}

void list_mbx_fetch_envelope(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_envelope);
}

void mlmbx_fetch_body(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_body);
}

void list_mbx_fetch_bodystructure(MailboxHandle *handle, int sequence)
{
    whole_operation(handle, sequence, print_bodystructure);
}
