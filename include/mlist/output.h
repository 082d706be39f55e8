/* Where the text of the archive driver and of the delivery job goes. */
#ifndef MLIST_OUTPUT_H
#define MLIST_OUTPUT_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Sets the calling thread's sink; null puts the process's stdout back.  The stream stays the
   caller's and must outlive its use.  Text may be printed while the list is locked (never while the
   archive's index is), so give a stream that cannot block: one over memory, or one that
   discards. */
void mlist_set_output(FILE *stream);

/* The calling thread's sink; the process's stdout where none is set, never null. */
FILE *mlist_get_output(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
