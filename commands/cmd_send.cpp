/* How a composed reply leaves: to the sender, from the list's owner. */
#include "commands/cmd_send.h"

#include <string.h>

#include "module/ascii.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/str.h"

/* -- the recipient -- */

/* End of the conversion that begins at the "%", or null when there is none. */
static const char *end_of_conversion(const char *p)
{
    ++p;
    p += strspn(p, "-+ #0'I");
    while (is_ascii_digit(static_cast<unsigned char>(*p)) || *p == '*' || *p == '.' || *p == '$')
        ++p;
    p += strspn(p, "hlqjzZtL");
    return *p != '\0' && strchr("diouxXeEfFgGaAcsCSpnm", *p) != nullptr ? p + 1 : nullptr;
}

/* KEPT: the sender's address is its own format.  Nobody's argument is ever fetched for it.
   Test: ReplyAddress.APercentSignIsNeverAnArgument */
void expand_address(const char *address, char *out, size_t size)
{
    size_t used = 0;
    while (*address != '\0' && used + 2 < size) {
        const char *end = *address == '%' ? end_of_conversion(address) : nullptr;
        if (end != nullptr) {
            address = end;
            continue;
        }
        if (address[0] == '%' && address[1] == '%') ++address;
        out[used++] = *address++;
    }
    out[used] = '\0';
}

/* -- sending -- */

static int reply_path(const DeliveryJob *job, char *path)
{
    char name[32];
    snprintf_(name, sizeof(name), "msg/cmdrpy.%d", job->thread_id);
    return control_path(path, job, name);
}

int send_reply(DeliveryJob *job, const FailText &fail)
{
    char path[PATH_SIZE];
    if (reply_path(job, path) < 0) return log_failure(fail, job->list_name);
    char recipient[REPLY_ADDRESS_SIZE];
    expand_address(job->sender, recipient, sizeof(recipient));
    const char *const recipients[] = {recipient, nullptr};
    char owner[LIST_NAME_SIZE + DOMAIN_SIZE + 16];
    snprintf_(owner, sizeof(owner), "owner-%s@%s", job->list_name, job->domain);
    char result[MLIST_RESULT_TEXT_SIZE] = {}; /* a reply's result text is of no use to anyone */
    if (job->submit(path, owner, recipients, nullptr, result) == 0)
        return log_failure(fail, job->list_name);
    (void)delfile(path); /* the next reply of this thread overwrites what stays */
    return 0;
}

void log_command(const DeliveryJob *job, int msgno, const char *done)
{
    trace_sys(&g_logh, 5, msgno, "ML Command Log:  %s %s\r\n>>> %s", job->list_name, job->sender,
              done);
}

int answer(DeliveryJob *job, int kind, const char *text, int variant, const ReplyTexts &texts,
           const char *done)
{
    if (create_cmdrpy(job, kind, text, variant) < 0)
        return log_failure(texts.create, job->list_name);
    if (send_reply(job, texts.send) < 0) return -1;
    log_command(job, texts.log_number, done);
    return 0;
}
