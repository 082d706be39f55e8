/* Loop check, access look-ups, and the names and times of a delivery. */
#include "module/mlist_access.h"

#include <string.h>
#include <time.h>

#include "module/ascii.h"
#include "module/os.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/str.h"

bool unusable_component(const char *name)
{
    return name[0] == '\0' || strcmp(name, ".") == 0 || strcmp(name, "..") == 0 ||
           strchr(name, '/') != nullptr;
}

void address_check(const char *in, char *out)
{
    for (; *in != '\0'; ++in) {
        const unsigned char c = static_cast<unsigned char>(*in);
        const bool unusable = c == '/' || c < ' ' || c == 0x7F;
        *out++ = static_cast<char>(unusable ? ':' : ascii_lower(c));
    }
    *out = '\0';
}

#define LOOP_ADDRESS_SIZE 193

int loop_mail(const DeliveryJob *job)
{
    /* KEPT: with the two bytes for "@" and NUL an address of 192 passes; a longer one counts as a
       loop.  Test: HeaderEnd.AnAddressTooLongForTheLoopCheckIsALoop */
    if (strlen(job->list_name) + strlen(job->domain) + 2 >= LOOP_ADDRESS_SIZE + 1) {
        trace_sys(&g_logh, 1, 369, "mlname=%s loop mail buffer size too small", job->list_name);
        return -1;
    }
    char address[LOOP_ADDRESS_SIZE + 1];
    snprintf_(address, sizeof(address), "%s@%s", job->list_name, job->domain);
    return begins_nocase(job->xml_name, address) ? -1 : 0;
}

int mail_access(DeliveryJob *job)
{
    char line[LINE_SIZE];
    if (get_grant(job, job->sender, line) < 0) {
        trace_sys(&g_logh, 1, 367, "mlname=%s mail_access get_grant fail", job->list_name);
        return -1;
    }
    return line[0] != '\0';
}

int mail_access2(DeliveryJob *job)
{
    char line[LINE_SIZE];
    if (get_member(job, job->sender, line) < 0) {
        trace_sys(&g_logh, 1, 368, "mlname=%s mail_access2 get_member fail", job->list_name);
        return -1;
    }
    return line[0] != '\0';
}

void strtime(char *out)
{
    const time_t now = os->time(nullptr);
    struct tm local = {};
    (void)localtime_r(&now, &local); /* a time without a calendar date prints as zeros */
    snprintf_(out, 32, "%02d/%02d/%02d %02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
              local.tm_mday, local.tm_hour, local.tm_min);
}

void owner_address(const DeliveryJob *job, char *out)
{
    snprintf_(out, OWNER_ADDRESS_SIZE, "owner-%s@%s", job->list_name, job->domain);
}
