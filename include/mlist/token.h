/* Tokenizers over the text of an IMAP command line (RFC 3501).  They work in place and keep their
   place for each thread; a line is scanned to its end before another one on the same thread. */
#ifndef MLIST_TOKEN_H
#define MLIST_TOKEN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The next atom or quoted string (escapes resolved in place), or null at the end, for a quoted
   string without end and for a literal.  text begins a new line, null continues. */
char *list_gettoken_astring(char *text);

/* The next number of a message set, 0 at its end or on an error.  maximum is the value of "*" and
   the bound of every number.  text begins a new set, null continues.  Behind a set that ends in a
   blank the astring tokenizer goes on.  KEPT: a range is not reordered: 5:3 yields 5. */
uint32_t list_gettoken_msgset(char *text, uint32_t maximum);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
