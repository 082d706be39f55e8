/* Header of a posting: what becomes of each line, the lines that the list adds, the subject tag. */
#ifndef HEADERS_HEAD_H
#define HEADERS_HEAD_H

#include "module/job.h"

/* -- line by line (head_table.cpp, head.cpp) -- */

/* Result of header_proc(). */
enum HeaderFate {
    HEADER_FAIL = -1,
    HEADER_KEEP = 0,
    HEADER_DROP = 1,
    HEADER_LOOP_CHECK = 2 /* an X-ML-Name line: check for a loop, then keep */
};

/* Decides one header line and collects its value into the job.  line has LINE_SIZE bytes and may
   be changed in place. */
int header_proc(char *line, DeliveryJob *job);

/* Collectors: 0, or -1 (logged). */
int head_subject(DeliveryJob *job, const char *value);
int head_from(DeliveryJob *job, const char *value);
int head_xmlname(DeliveryJob *job, char *value);
int head_msgid(DeliveryJob *job, const char *value);
int head_contype(DeliveryJob *job, const char *value);
int head_retpath(DeliveryJob *job, const char *value);

/* -- at the end of the header (head_add.cpp, head_owner.cpp) -- */
int header_add(char *buffer, int size, DeliveryJob *job);
int header_add2(char *buffer, int size, DeliveryJob *job);

/* Reduces a From value in place to a bare address. */
void make_owner_string(char *text);

/* -- subject (head_subject.cpp, head_tag.cpp, head_decode.cpp, head_encode.cpp) -- */
int header_sub(char *line, int size, DeliveryJob *job);
char *detect_subfmt(DeliveryJob *job, char *subject, int *re_flag, int mode);
char *make_subfmt(DeliveryJob *job, char *out, int size);
int decode(const char *in, char *out, int size);
int encode_b64(const char *in, char *out, int size);
int does_encode(const char *text);

/* -- JIS text and dates (head_jis.cpp, head_date.cpp) -- */
int mlist_strlen(const char *text);
int sprtjis(const char *text, int limit, int initial_mode, int *cut_out);
void datestr(const char *value, char *out, int size);
int64_t getmsgidsec();

#endif
