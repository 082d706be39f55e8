/* MIME structure of a message, inside; the contract is mlist/fetch.h. */
#ifndef ARCHIVE_MIME_H
#define ARCHIVE_MIME_H

#include <stddef.h>
#include <stdint.h>

#include "archive/message_bytes.h"
#include "mlist/fetch.h"
#include "module/ascii.h"

/* Deeper than any mail that people write.  What nests deeper is not taken apart. */
#define MIME_MAX_DEPTH 64
#define MIME_MAX_PARTS 10000

/* -- field walk (mbx_mime_field.cpp) -- */

/* Position in a header that is walked field by field. */
struct FieldCursor {
    char *next = nullptr; /* null: at the end */
};

/* Unfolds the header in place and stands before its first field. */
void start_fields(FieldCursor *cursor, char *header);

/* The next field, its line end cut off; null at the end.
   KEPT: a last line without CR is not returned.
   Test: FieldWalk.LosesALastLineWithoutALineEnd */
char *next_field(FieldCursor *cursor);

/* The value of the field when it begins with the prefix, ASCII case aside; else null. */
char *field_value(char *field, const char *prefix);

/* -- address walk (mbx_mime_addr.cpp) -- */
struct AddressCursor {
    char *next = nullptr;
};

void start_addresses(AddressCursor *cursor, char *addresses);
char *next_address(AddressCursor *cursor);

/* -- dates (mbx_mime_date.cpp) -- */

/* "Jan" to "Dec". */
extern const char month_names[12][4];

/* The date of a Date field: 1, or 0 when the text is none. */
int analize_rfc822date(const char *text, int *day_out, int *month_out, int *year_out);

inline bool is_ascii_alnum(unsigned char c)
{
    return is_ascii_digit(c) || (ascii_lower(c) >= 'a' && ascii_lower(c) <= 'z');
}

/* -- the exported operations of the same names, on a message that may be held -- */

PartNode *getmime(MessageBytes *bytes, uint32_t start, uint32_t header_length,
                  uint32_t body_length);
int getenvelope(MessageBytes *bytes, uint32_t start, uint32_t header_length);
void getbody(MessageBytes *bytes, const PartNode *part, int extensions);
void getsection(MessageBytes *bytes, const PartNode *part, const char *section);
void getsection_range(MessageBytes *bytes, const PartNode *part, const char *section,
                      uint32_t start, uint32_t count);
uint32_t count_lines(MessageBytes *bytes, uint32_t start, uint32_t length); /* getlines() */

/* -- printing (mbx_mime_string.cpp).  errno is kept. -- */

void put_bytes(const char *data, size_t size);
void put_text(const char *text);

/* list_print_string() of so many bytes, none of them NUL. */
void print_string(const char *text, size_t length);

#endif
