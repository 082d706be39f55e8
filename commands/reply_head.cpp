/* Header and MIME lines of the mails that the module writes itself. */
#include <stdarg.h>
#include <stdio.h>

#include "commands/reply.h"
#include "store/fail_text.h"

/* Formats one block; a block that does not fit is left out and logged with its own text. */
static void build(DeliveryJob *job, char *destination, int size, const FailText &too_short,
                  const char *format, ...) __attribute__((format(printf, 5, 6)));

static void build(DeliveryJob *job, char *destination, int size, const FailText &too_short,
                  const char *format, ...)
{
    if (size <= 0) return;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(destination, static_cast<size_t>(size), format, arguments);
    va_end(arguments);
    if (length < size) return;
    destination[0] = '\0';
    (void)log_failure(too_short, job->list_name);
}

void make_cmdrpy_header(DeliveryJob *job, const char *word, char *destination, int size)
{
    build(job, destination, size, {1, 201, "mlname=%s make cmdrpy header buffer too short"},
          "From: %s@%s\r\nTo: %s\r\nSubject: ML command [%s]: %s\r\nReply-To: %s\r\n"
          "X-ML-Name: %s@%s\r\nIn-Reply-To: <%s>\r\n",
          job->list_name, job->domain, job->sender, word, job->list_name, job->settings.reply_to,
          job->list_name, job->domain, job->message_id);
}

/* KEPT: the digest names the bare list in From and To, and its log text says "mlnane".
   Test: ReplyHeaders.ABlockThatDoesNotFitIsLeftOutAndLogged */
void make_dgtrpy_header(DeliveryJob *job, char *destination, int size)
{
    build(job, destination, size, {1, 202, "mlnane=%s make dgtrpy header buffer too short"},
          "From: %s\r\nTo: %s\r\nSubject: ML digest: %s\r\nReply-To: %s\r\n"
          "X-ML-Name: %s@%s\r\nIn-Reply-To: <%s>\r\n",
          job->list_name, job->list_name, job->list_name, job->settings.reply_to, job->list_name,
          job->domain, job->message_id);
}

void make_mldeny_header(DeliveryJob *job, char *destination, int size)
{
    build(job, destination, size, {1, 203, "mlname=%s, make mldeny header buffer too short"},
          "From: owner-%s@%s\r\nTo: %s\r\nSubject: ML denied: %s\r\n"
          "X-ML-Name: %s@%s\r\nIn-Reply-To: <%s>\r\n",
          job->list_name, job->domain, job->sender, job->list_name, job->list_name, job->domain,
          job->message_id);
}

void make_cmdrpy_mimeheader(DeliveryJob *job, char *destination, int size)
{
    build(job, destination, size, {1, 204, "mlname=%s make cmdrpy mimeheader buffer too short"},
          "Mime-Version: 1.0\r\nContent-Type: "
          "Multipart/Mixed;\r\n\tboundary=\"--NextPart(%s)--\"\r\n",
          job->message_id);
}

void make_cmdrpy_mimetext(DeliveryJob *job, char *destination, int size)
{
    build(job, destination, size, {1, 205, "mlname=%s make cmdrpy mimetext buffer too short"},
          "\r\n----NextPart(%s)--\r\nContent-Type: Text/Plain; charset=iso-2022-jp\r\n\r\n",
          job->message_id);
}

/* KEPT: its log text is that of the text part.
   Test: ReplyHeaders.ABlockThatDoesNotFitIsLeftOutAndLogged */
void make_cmdrpy_mimemail(DeliveryJob *job, char *destination, int size)
{
    build(job, destination, size, {1, 206, "mlname=%s make cmdrpy mimetext buffer too short"},
          "\r\n----NextPart(%s)--\r\nContent-Type: Message/Rfc822\r\n\r\n", job->message_id);
}

void make_cmdrpy_mimeperiod(DeliveryJob *job, char *destination, int size)
{
    build(job, destination, size, {1, 207, "mlname=%s make cmdrpy mimeperiod buffer too short"},
          "\r\n----NextPart(%s)----\r\n\r\n", job->message_id);
}
