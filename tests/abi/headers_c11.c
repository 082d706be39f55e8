/* The public headers as a C compiler sees them: complete, and laid out as the module lays them out.
   That it compiles is the test; the program only proves that nothing of it was left out. */
#include "ldapuse.h"
#include "mlist/admin.h"
#include "mlist/archive.h"
#include "mlist/delivery_request.h"
#include "mlist/fetch.h"
#include "mlist/host_functions.h"
#include "mlist/list_settings.h"
#include "mlist/mlist.h"
#include "mlist/module_record.h"
#include "mlist/output.h"
#include "mlog.h"

#define AT(type, member, offset)                                                                   \
    _Static_assert(offsetof(struct type, member) == (offset), #type "." #member)
#define SIZE(type, size) _Static_assert(sizeof(struct type) == (size), #type)

SIZE(ModuleRecord, 516);
AT(ModuleRecord, interface_word, 0);
AT(ModuleRecord, module_name, 4);
AT(ModuleRecord, host_fqdn, 260);

SIZE(DeliveryRequest, 80);
AT(DeliveryRequest, submit, 0);
AT(DeliveryRequest, message_file, 8);
AT(DeliveryRequest, argument_count, 16);
AT(DeliveryRequest, argument_vector, 24);
AT(DeliveryRequest, domain, 32);
AT(DeliveryRequest, reply_text, 40);
AT(DeliveryRequest, result_text, 48);
AT(DeliveryRequest, allocate, 56);
AT(DeliveryRequest, release, 64);
AT(DeliveryRequest, keep_text, 72);

SIZE(ListSettings, 316);
AT(ListSettings, command_mask, 0);
AT(ListSettings, digest_time, 32);
AT(ListSettings, subject_format, 36);
AT(ListSettings, reply_to, 100);
AT(ListSettings, nonmembers_may_post, 228);
AT(ListSettings, size_limit, 244);
AT(ListSettings, web_password, 248);

SIZE(IndexRecord, 16);
AT(IndexRecord, uid, 0);
AT(IndexRecord, flags, 4);
AT(IndexRecord, header_size, 8);
AT(IndexRecord, size, 12);

AT(MailboxHandle, path, 0);
AT(MailboxHandle, sync_stamp, 8);
AT(MailboxHandle, mode, 12);
AT(MailboxHandle, index, 16);
AT(MailboxHandle, cache, 24);

AT(IndexHandle, path, 0);
AT(IndexHandle, fd, 8);
AT(IndexHandle, new_fd, 12);
AT(IndexHandle, second_fd, 16);
AT(IndexHandle, error_code, 20);

SIZE(PartNode, 96);
AT(PartNode, content_type, 16);
AT(PartNode, line_count_text, 56);
AT(PartNode, enclosed, 64);
AT(PartNode, children, 80);
AT(PartNode, lines, 92);

SIZE(LogHandle, 16);

_Static_assert(MLIST_INTERFACE_WORD == 0x00010000u, "two halves, the upper one 1");
_Static_assert(MLIST_EXIT_ACCEPTED == 0 && MLIST_EXIT_REFUSED == 69 && MLIST_EXIT_LATER == 75,
               "exit codes");

int main(void)
{
    return 0;
}
