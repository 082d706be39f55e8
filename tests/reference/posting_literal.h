/* A posting in its plain form: one function after the other, every archive operation a transaction
   of its own with three copies of the index, every line written as it comes, control files read a
   byte at a time.  Slow and obvious, for comparison with ModuleMain().

   What a header becomes, how settings are read and what a denial notice says is not done twice:
   those are asked of the module.  No faults of the disk, no lines of more than 4,000 bytes in
   banners, no command mails. */
#ifndef TESTS_REFERENCE_POSTING_LITERAL_H
#define TESTS_REFERENCE_POSTING_LITERAL_H

#include "mlist/mlist.h"

namespace literal
{
/* As ModuleMain(), on the lists below g_path_mlist and g_mbox_list; logs through the module's
   front end and prints to the thread's sink. */
int post(DeliveryRequest *request);
} // namespace literal

#endif
