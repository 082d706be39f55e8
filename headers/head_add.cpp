/* The header lines that the list adds at the end of a posting's header. */
#include "headers/head.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "mlist/mlist.h"
#include "module/sink.h"
#include "module/unix_sv.h"

/* A buffer being filled line by line. */
struct AddedLines {
    char *next;
    int room; /* bytes left at next, for the NUL too */
};

/* Appends a line; 0, or -1 when it does not fit. */
__attribute__((format(printf, 2, 3))) static int add_line(AddedLines *lines, const char *format,
                                                          ...)
{
    if (lines->room <= 0) return -1;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(lines->next, static_cast<size_t>(lines->room), format, arguments);
    va_end(arguments);
    if (length < 0 || length >= lines->room) {
        lines->next[0] = '\0';
        return -1;
    }
    lines->next += length;
    lines->room -= length;
    return 0;
}

static AddedLines begin_lines(char *buffer, int size)
{
    if (size > 0) buffer[0] = '\0';
    return {buffer, size};
}

static int add_xml_name(AddedLines *lines, DeliveryJob *job)
{
    if (add_line(lines, "X-ML-Name: %s@%s\r\n", job->list_name, job->domain) == 0) return 0;
    out_printf("Add Header Too Long -X-ML-Name-\n");
    trace_sys(&g_logh, 1, 317, "mlname=%s Add Header Too Long -X-ML-Name-", job->list_name);
    return -1;
}

static int add_mail_count(AddedLines *lines, DeliveryJob *job)
{
    if (add_line(lines, "X-Mail-Count: %06u\r\n", job->new_number) == 0) return 0;
    out_printf("Add Header Too Long -X-Mail-Count-\n");
    trace_sys(&g_logh, 1, 318, "mlname=%s Add Header Too Long -X-Mail-Count-", job->list_name);
    return -1;
}

static const char *precedence_word(int precedence)
{
    if (precedence == PRECEDENCE_JUNK) return "junk";
    return precedence == PRECEDENCE_BULK ? "bulk" : "list";
}

static int add_precedence(AddedLines *lines, DeliveryJob *job)
{
    if (add_line(lines, "Precedence: %s\r\n", precedence_word(job->settings.precedence)) == 0)
        return 0;
    out_printf("Add Header Too Long -Precedence-\n");
    trace_sys(&g_logh, 1, 319, "mlname=%s Add Header Too Long -Precedence-", job->list_name);
    return -1;
}

static int add_reply_to(AddedLines *lines, DeliveryJob *job)
{
    const char *address = job->settings.reply_to;
    if (address[0] == '\0') address = job->list_name;
    if (add_line(lines, "Reply-To: %s\r\n", address) == 0) return 0;
    out_printf("Add Header Too Long -Reply-To-\n");
    trace_sys(&g_logh, 1, 321, "mlname=%s Add Header Too Long -Reply-To-", job->list_name);
    return -1;
}

static const struct {
    uint32_t bit;
    int (*add)(AddedLines *lines, DeliveryJob *job);
} added_headers[] = {
    {ADD_XML_NAME, add_xml_name},
    {ADD_XMAIL_COUNT, add_mail_count},
    {ADD_PRECEDENCE, add_precedence},
    {ADD_REPLY_TO, add_reply_to},
};

int header_add(char *buffer, int size, DeliveryJob *job)
{
    AddedLines lines = begin_lines(buffer, size);
    for (const auto &header : added_headers)
        if ((job->header_mask & header.bit) != 0 && header.add(&lines, job) < 0) return -1;
    return 0;
}

/* KEPT: the room is judged by the length of the poster's address, not of the owner's.
   Test: HeaderAdd2.ALongPosterAddressIsTooLong */
static bool sender_fits(const DeliveryJob *job, int size)
{
    return strlen("Sender: ") + strlen(job->sender) + 2 < static_cast<size_t>(size);
}

int header_add2(char *buffer, int size, DeliveryJob *job)
{
    AddedLines lines = begin_lines(buffer, size);
    if (add_resent_header == 0) return 0;
    if (size > 0 && sender_fits(job, size) &&
        add_line(&lines, "Sender: owner-%s@%s\r\n", job->list_name, job->domain) == 0)
        return 0;
    out_printf("Add Header Too Long -Resent-*-\n");
    trace_sys(&g_logh, 1, 321, "mlname=%s Add Header Too Long -Resent-*-", job->list_name);
    return -1;
}
