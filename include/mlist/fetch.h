/* What FETCH answers: items, sections, and the structure of a message.

   Thread rules are those of archive.h.  Everything that is printed goes to the calling thread's
   sink (output.h); none of it is printed while the index is locked.  No function here takes a
   lock: message files do not change once they are in a mailbox, and one that is gone meanwhile
   gives the empty form of whatever was asked for.

   A message is read by its descriptor and at offsets; the descriptor's own position is neither used
   nor moved.  Texts that functions return are memory of the thread's allocator and go back through
   mlist_release(). */
#ifndef MLIST_FETCH_H
#define MLIST_FETCH_H

#include <stdint.h>

#include "mlist/archive.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* -- one response -- */

/* Prints one "* s FETCH (...)" response with the items, a list that ends with a null pointer; or
   that there is no such message.  A text that is fetched without PEEK makes the message \Seen in
   the handle, from where the next check carries it into the index. */
void mlmbx_fetch(struct MailboxHandle *handle, int sequence, char **items);

/* -- one item each, name and value.  They use the cache as it stands: give it back with
   list_mbx_freecache() before going on to another message. -- */
void list_mbx_fetch_flags(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_internaldate(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_rfc822(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_rfc822_header(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_rfc822_text(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_rfc822_size(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_uid(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_envelope(struct MailboxHandle *handle, int sequence);
void mlmbx_fetch_body(struct MailboxHandle *handle, int sequence);
void list_mbx_fetch_bodystructure(struct MailboxHandle *handle, int sequence);

/* section: what follows "BODY[", with the closing bracket and, perhaps, "<start.count>". */
void list_mbx_fetch_mimebody(struct MailboxHandle *handle, int sequence, const char *section);

/* Sees to it that the handle has a parsed message: the one it has, else this one.  1, or 0. */
int list_mbx_getcache(struct MailboxHandle *handle, int sequence);

/* -- structure of a message -- */

/* One part.  Offsets are those of the message file. */
struct PartNode {
    uint32_t start;         /* of its header */
    uint32_t header_length; /* with the blank line; 0 when it has none */
    uint32_t body_length;
    char *content_type; /* field values, null where the header has no such field */
    char *transfer_encoding;
    char *content_id;
    char *description;
    char *disposition;
    char *line_count_text;     /* printed in place of a number of lines, unless null */
    struct PartNode *enclosed; /* the message in a message/rfc822, null when it has no header */
    uint32_t child_count;
    struct PartNode **children; /* parts of a multipart; one that could not be parsed is null */
    uint32_t lines_known;       /* not 0: lines is the number of lines of the body */
    uint32_t lines;
};

/* The tree of the part whose header begins at start; null (logged) when it cannot be made.  It is
   64 levels deep and has 10,000 parts at most: what lies deeper or comes later is left out. */
struct PartNode *list_getmime(int fd, uint32_t start, uint32_t header_length, uint32_t body_length);

/* The same for a message inside another, whose header ends where it ends; null when it does not. */
struct PartNode *list_getrfc822(int fd, uint32_t start, uint32_t length);

void list_freemime(struct PartNode *part); /* null is allowed */

/* The next part behind position between two lines that begin with "--" and the boundary: where it
   starts, or 0. */
uint32_t list_get1mime(int fd, uint32_t position, const char *boundary, uint32_t *header_length_out,
                       uint32_t *body_length_out);

/* Lines that end within the range; the file's last one needs no line feed. */
uint32_t getlines(int fd, uint32_t start, uint32_t length);

/* Fields of a header, one a call: the text first, then null; null at the end.  The text is unfolded
   and cut up on the way.  One walk a thread. */
char *list_get1header(char *header);

/* Addresses of a list, likewise; a walk of its own. */
char *list_get1addr(char *addresses);

/* Position of the next ";" outside quotes, or null. */
const char *nextparam(const char *text);

/* The parameters with those of RFC 2231 joined; null for an empty text or without memory. */
char *rfc2231(const char *parameters);

/* -- its printed forms -- */

/* ENVELOPE of the header there.  1, or 0 with NIL printed when it cannot be read. */
int list_getenvelope(int fd, uint32_t start, uint32_t header_length);

/* BODY, or with extensions BODYSTRUCTURE. */
void list_getbody(int fd, const struct PartNode *part, int extensions);

void list_parse_cparam(const char *parameters); /* parameter list; null is NIL */
void list_parse_cdp(const char *disposition);   /* disposition; null is NIL */
void list_parse_addr(char *addresses);          /* the list without its parentheses; changes it */
void list_print1addr(const char *name, const char *address); /* name may be null */
void list_print_string(const char *text);                    /* quoted string or literal */

/* -- sections -- */

/* Prints the literal of a section of the tree, "1.2.MIME]" for example, or "" for one that there is
   not.  The second form prints count bytes from start of it, and nothing at all where there is no
   such section. */
void list_getsection(int fd, const struct PartNode *part, const char *section);
void list_getsection_range(int fd, const struct PartNode *part, const char *section, uint32_t start,
                           uint32_t count);

/* The names of "(NAME NAME)" as one block of memory, the list ended with a null pointer; null and
   count 0 when there is no such list or no name in it. */
char **parse_header_list(const char *text, int *count_out);

/* Reads "<start.count>"; numbers too large become the largest.  1 when it is well formed; the
   outputs are 0 where digits are missing in any case. */
int getrange(const char *text, uint32_t *start_out, uint32_t *count_out);

#pragma GCC visibility pop
#ifdef __cplusplus
}
static_assert(offsetof(PartNode, content_type) == 16 && offsetof(PartNode, enclosed) == 64);
static_assert(offsetof(PartNode, children) == 80);
#endif

#endif
