/* Collectors of header_proc(): what later steps need of a posting's header. */
#include "headers/head.h"

#include <string.h>

#include "module/ascii.h"
#include "module/sink.h"
#include "module/unix_sv.h"
#include "store/str.h"

static constexpr size_t SUBJECT_MAX = 1024; /* what is collected; decoded text may be longer */
static constexpr size_t VALUE_MAX = LINE_SIZE;

/* Length of a value without the CRs and LFs at its end. */
static size_t length_without_line_end(const char *value)
{
    size_t length = strlen(value);
    while (length > 0 && (value[length - 1] == '\r' || value[length - 1] == '\n'))
        --length;
    return length;
}

static void append_bytes(char *text, size_t used, const char *bytes, size_t count)
{
    memcpy(text + used, bytes, count);
    text[used + count] = '\0';
}

int head_subject(DeliveryJob *job, const char *value)
{
    if ((job->flags & JOB_SUBJECT_OVERFLOW) != 0) return 0;
    const size_t used = strlen(job->subject);
    const size_t length = length_without_line_end(value);
    if (used + length > SUBJECT_MAX) {
        trace_sys(&g_logh, 3, 310, "mlname=%s subject over flow [mx=%d]", job->list_name,
                  static_cast<int>(SUBJECT_MAX));
        job->flags |= JOB_SUBJECT_OVERFLOW;
        return 0;
    }
    append_bytes(job->subject, used, value, length);
    return 0;
}

int head_from(DeliveryJob *job, const char *value)
{
    const size_t used = strlen(job->sender);
    const size_t length = length_without_line_end(value);
    if (used + length >= sizeof job->sender) {
        trace_sys(&g_logh, 1, 311, "mlname=%s from too long [len=%d,fromsize=%d]", job->list_name,
                  static_cast<int>(used + length), static_cast<int>(sizeof job->sender));
        return -1;
    }
    append_bytes(job->sender, used, value, length);
    return 0;
}

static int refuse_xmlname(int msgno, size_t length)
{
    out_printf("xmlname too long [sl=%d]\n", static_cast<int>(length));
    trace_sys(&g_logh, 1, msgno, "xmlname too long [strlen=%d]", static_cast<int>(length));
    return -1;
}

int head_xmlname(DeliveryJob *job, char *value)
{
    size_t length = strlen(value);
    if (length > VALUE_MAX) return refuse_xmlname(313, length);
    if (length > 0 && value[length - 1] == '\n') {
        --length;
        if (length > 0 && value[length - 1] == '\r') --length;
    }
    append_bytes(job->xml_name, 0, value, length);
    if (length >= VALUE_MAX) return refuse_xmlname(314, length);
    memcpy(value + length, "\r\n", 3);
    return 0;
}

int head_msgid(DeliveryJob *job, const char *value)
{
    const size_t length = strlen(value);
    if (length > VALUE_MAX) {
        out_printf("message-id too long [sl=%d]\n", static_cast<int>(length));
        trace_sys(&g_logh, 1, 315, "mlname=%s message-id too long [strlen=%d]", job->list_name,
                  static_cast<int>(length));
        return -1;
    }
    const char *open = strchr(value, '<');
    const char *close = open != nullptr ? strchr(open, '>') : nullptr;
    if (close != nullptr)
        append_bytes(job->message_id, 0, open + 1, static_cast<size_t>(close - open - 1));
    return 0;
}

/* Whether the parameters of a text/plain value begin with charset=iso-2022-jp. */
static bool begins_with_jis_charset(const char *parameters)
{
    const char *at = skip_space_tab(parameters);
    if (!begins_nocase(at, "charset")) return false;
    at = skip_space_tab(at + strlen("charset"));
    if (*at != '=') return false;
    at = skip_space_tab(at + 1);
    if (*at == '"') at = skip_space_tab(at + 1);
    return begins_nocase(at, "iso-2022-jp");
}

static int content_kind_of(const char *content_type)
{
    static const char plain[] = "Text/Plain;";
    const char *at = skip_space_tab(content_type);
    if (!begins_nocase(at, plain)) return CONTENT_OTHER;
    return begins_with_jis_charset(at + sizeof plain - 1) ? CONTENT_JIS : CONTENT_PLAIN;
}

int head_contype(DeliveryJob *job, const char *value)
{
    size_t used = strlen(job->content_type);
    if (used > 0 && used < VALUE_MAX) append_bytes(job->content_type, used++, " ", 1);
    const size_t length = strlen(value);
    const size_t room = VALUE_MAX - used;
    append_bytes(job->content_type, used, value, length < room ? length : room);
    strip_endchar(job->content_type);
    job->content_kind = content_kind_of(job->content_type);
    return 0;
}

/* Mail that already went through a final delivery, or that a mailer daemon wrote, would loop. */
int head_retpath(DeliveryJob *, const char *value)
{
    const char *open = strchr(value, '<');
    if (open != nullptr && strchr(open, '>') != nullptr) return -1;
    return begins_nocase(skip_space_tab(value), "MAILER-DAEMON@") ? -1 : 0;
}
