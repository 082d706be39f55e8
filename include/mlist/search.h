/* SEARCH over an open mailbox (RFC 3501, with the deviations named here).

   Criteria are filters applied one after another.  Text is compared byte for byte, case included,
   after both sides were converted to EUC-JP. */
#ifndef MLIST_SEARCH_H
#define MLIST_SEARCH_H

#include "mlist/archive.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Evaluates the criteria and prints "* SEARCH" with the numbers of the messages found (their UIDs
   when uid is not 0), or nothing at all when there is none.  charset is that of the strings in the
   text: null or "shift_jis", "iso-2022-jp"; any other is taken as it stands.  The text is not
   changed.  1, or 0 for a syntax error: nothing is printed then.

   Operands of OR and NOT are single keys or groups in parentheses, never OR or NOT themselves;
   literals are not understood; a message set that is malformed ends where the mistake is. */
int mlmbx_search(struct MailboxHandle *handle, const char *text, const char *charset, int uid);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
