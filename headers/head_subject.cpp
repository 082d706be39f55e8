/* header_sub(): the new Subject line of a posting. */
#include "headers/head.h"

#include <stdio.h>
#include <string.h>

#include "module/sink.h"
#include "module/unix_sv.h"

/* How much of a cleaned subject is kept when it does not fit its field. */
static constexpr size_t STORED_MAX = 4080;

static int decode_subject(DeliveryJob *job, char *out, int size)
{
    if (strnlen(job->subject, sizeof job->subject) == sizeof job->subject) {
        out_printf("work buffer too short (LEN_LINE)\n");
        trace_sys(&g_logh, 1, 328, "mlname=%s work buffer too short (LEN_LINE)", job->list_name);
        return -1;
    }
    if (decode(job->subject, out, size) == 0) return 0;
    out_printf("head_sub decode2 fail\n");
    trace_sys(&g_logh, 1, 329, "mlname=%s head_sub decode fail", job->list_name);
    return -1;
}

enum class Cleaned { not_edited, reply, edited };

static void log_subject_cut(const DeliveryJob *job, Cleaned kind, int length)
{
    const char *list = job->list_name;
    switch (kind) {
    case Cleaned::not_edited:
        trace_sys(&g_logh, 3, 330, "mlname=%s not enought summary buffer -no edit- [strlen=%d]",
                  list, length);
        break;
    case Cleaned::reply:
        trace_sys(&g_logh, 3, 331, "mlname=%s not enought summary buffer -edit re- [strlen=%d]",
                  list, length);
        break;
    case Cleaned::edited:
        trace_sys(&g_logh, 3, 332, "mlname=%s not enought summary buffer -edit- [strlen=%d]", list,
                  length);
        break;
    }
}

/* Makes the cleaned text the job's subject, for the archive and for command replies. */
static void store_subject(DeliveryJob *job, Cleaned kind, const char *text)
{
    const char *prefix = kind == Cleaned::reply ? "Re: " : "";
    const int length = snprintf(job->subject, sizeof job->subject, "%s%s", prefix, text);
    if (static_cast<size_t>(length) < sizeof job->subject) return;
    log_subject_cut(job, kind, length);
    job->subject[STORED_MAX] = '\0';
}

/* "Subject: TAG [Re: ]TEXT", not yet encoded. */
static int compose_subject(DeliveryJob *job, bool replied, const char *text, char *out, int size)
{
    char tag[LINE_SIZE];
    if (make_subfmt(job, tag, sizeof tag) == nullptr) {
        out_printf("subfmt buffer too short (make ML header)\n");
        trace_sys(&g_logh, 1, 333, "mlname=%s subfmt buffer too short (make ML header)",
                  job->list_name);
        return -1;
    }
    const int length = snprintf(out, static_cast<size_t>(size), "Subject: %s %s%s", tag,
                                replied ? "Re: " : "", text);
    if (length < size) return 0;
    out_printf("work buffer too short (make ML header)\n");
    trace_sys(&g_logh, 1, 334, "mlname=%s work buffer too short (make ML header)", job->list_name);
    return -1;
}

static int write_subject(DeliveryJob *job, const char *composed, char *line, int size)
{
    char encoded[LINE_SIZE];
    if (encode_b64(composed, encoded, sizeof encoded) < 0) {
        out_printf("head_sub encode fail\n");
        trace_sys(&g_logh, 1, 335, "mlname=%s head_sub encode fail", job->list_name);
        return -1;
    }
    if (size - static_cast<int>(strlen(encoded)) - 2 <= 0) {
        out_printf("input buffer too short [sz=%d]\n", size);
        trace_sys(&g_logh, 1, 336, "mlname=%s input buffer too short [sz=%d]", job->list_name,
                  size);
        return -1;
    }
    snprintf(line, static_cast<size_t>(size), "%s\r\n", encoded);
    return 0;
}

int header_sub(char *line, int size, DeliveryJob *job)
{
    if (size > 0) line[0] = '\0';

    char decoded[LINE_SIZE];
    if (decode_subject(job, decoded, sizeof decoded) < 0) return -1;

    if (job->settings.subject_mode == SUBJECT_NOEDIT) {
        store_subject(job, Cleaned::not_edited, decoded);
        return 0;
    }

    int replied = 0;
    const char *text = detect_subfmt(job, decoded, &replied, 0);
    store_subject(job, replied ? Cleaned::reply : Cleaned::edited, text);

    char composed[LINE_SIZE];
    if (compose_subject(job, replied, text, composed, sizeof composed) < 0) return -1;
    return write_subject(job, composed, line, size);
}
