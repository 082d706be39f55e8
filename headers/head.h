/* Header of a posting: what becomes of each line, the lines that the list adds, the subject tag.

   Everything here works on the caller's job and buffers alone: any thread, no lock, no file.
   Sizes count the terminating NUL.  A failure is logged where it happens; what is printed goes to
   the calling thread's sink. */
#ifndef HEADERS_HEAD_H
#define HEADERS_HEAD_H

#include <stdint.h>

#include "module/job.h"

/* -- line by line (head_table.cpp, head.cpp) -- */

/* Result of header_proc(). */
enum HeaderFate {
    HEADER_FAIL = -1,
    HEADER_KEEP = 0,
    HEADER_DROP = 1,
    HEADER_LOOP_CHECK = 2 /* an X-ML-Name line: check for a loop, then keep */
};

/* Decides one header line and collects its value into the job.  line is a buffer of LINE_SIZE bytes
   and may be changed in place: a Received line becomes X-Received, an X-ML-Name line gets CR LF as
   its end.  job->header_index must be -1 before the first line.  A HeaderFate; HEADER_FAIL is
   logged (level 5, message 1) after the collector's own line. */
int header_proc(char *line, DeliveryJob *job);

/* Collectors: 0, or -1 (logged).  value is what follows the name, line end included. */

/* Appends to job->subject; a piece with which it would exceed 1,024 characters is dropped and ends
   the collection (log 310).  Never fails. */
int head_subject(DeliveryJob *job, const char *value);

/* Appends to job->sender; -1 (log 311) when the whole would reach 4,096 characters. */
int head_from(DeliveryJob *job, const char *value);

/* Replaces job->xml_name and ends the value in place with CR LF: there must be room for both.
   -1 (logs 313, 314) from 4,096 characters on. */
int head_xmlname(DeliveryJob *job, char *value);

/* Stores what stands between "<" and the next ">", if anything does.  -1 (log 315) for more than
   4,096 characters. */
int head_msgid(DeliveryJob *job, const char *value);

/* Appends to job->content_type, what exceeds 4,096 characters cut, and sets job->content_kind. */
int head_contype(DeliveryJob *job, const char *value);

/* -1 for an address in angle brackets and for a mailer daemon's; stores nothing. */
int head_retpath(DeliveryJob *job, const char *value);

/* -- at the end of the header (head_add.cpp, head_owner.cpp) -- */

/* Writes the lines that job->header_mask still asks for.  0, or -1 (logs 317 to 321) when size is
   too small; buffer is terminated either way. */
int header_add(char *buffer, int size, DeliveryJob *job);

/* Writes the Sender line when add_resent_header is on, else the empty text.  0 or -1 (log 321). */
int header_add2(char *buffer, int size, DeliveryJob *job);

/* Reduces a From value in place to a bare address; a text of more than 4,096 characters stays as
   it is (log 337). */
void make_owner_string(char *text);

/* -- subject (head_subject.cpp, head_tag.cpp, head_decode.cpp, head_encode.cpp) -- */

/* Replaces job->subject by its cleaned text and, for a list that edits subjects, writes the new
   Subject line with CR LF; for any other the empty text.  0, or -1 (logs 328 to 336). */
int header_sub(char *line, int size, DeliveryJob *job);

/* The position in subject behind an old tag and "Re:" prefixes.  Sets *re_flag to 1 when a "Re:"
   stood before the tag, only in mode 0; never clears it. */
char *detect_subfmt(DeliveryJob *job, char *subject, int *re_flag, int mode);

/* The list's tag.  out, or null when it does not fit (out then holds what did). */
char *make_subfmt(DeliveryJob *job, char *out, int size);

/* Decodes the ISO-2022-JP encoded words of a text, each up to 4,095 characters long; everything
   else is copied.  A CR or LF that was hidden in a word comes out as a blank.  0, or -1 (logs 323
   to 325) with out terminated where it stopped. */
int decode(const char *in, char *out, int size);

/* Encodes the kanji runs of a JIS text as folded encoded words.  0, or -1 (logs 326, 327) with out
   terminated where it stopped. */
int encode_b64(const char *in, char *out, int size);

/* -- JIS text and dates (head_jis.cpp, head_date.cpp) -- */

/* 1 when the text holds a kanji-in sequence, else 0. */
int does_encode(const char *text);

int mlist_strlen(const char *text);

/* Where to cut JIS text after limit bytes, escape sequences not counted, without splitting a
   two-byte character.  The kanji mode at the cut (0 ASCII, 1 ESC $ B, 2 ESC $ @), or -1 with
   *cut_out at the end of a text that has fewer bytes.  initial_mode is the mode at the start. */
int sprtjis(const char *text, int limit, int initial_mode, int *cut_out);

/* An RFC 822 date as "YEAR/MM/DD HH:MM"; any other value is copied, cut at size - 1. */
void datestr(const char *value, char *out, int size);

/* Local time as seconds in a year of 31-day months, for message ids. */
int64_t getmsgidsec();

#endif
