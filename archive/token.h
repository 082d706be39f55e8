/* Tokens of an IMAP command line, inside: message sets as ranges (mlist/search.h has the exported
   operations, which hand out one number at a time). */
#ifndef ARCHIVE_TOKEN_H
#define ARCHIVE_TOKEN_H

#include <stdint.h>

/* Reads a set such as 1,3:5,7:* element by element. */
struct SetReader {
    const char *next; /* the next element, or the blank or end behind the set */
    uint32_t maximum; /* the value of "*", and the bound of every number */
};

enum class SetElement {
    range, /* low and high are set; high may be below low: then low stands alone */
    end,   /* at a blank or at the end of the text */
    error
};

SetElement read_element(SetReader *reader, uint32_t *low_out, uint32_t *high_out);

/* Makes text the calling thread's astring position; null: none. */
void set_astring_position(char *text);
char *astring_position();

#endif
