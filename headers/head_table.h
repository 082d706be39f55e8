/* The header-name table: which lines the list cares about, and how. */
#ifndef HEADERS_HEAD_TABLE_H
#define HEADERS_HEAD_TABLE_H

#include "module/job.h"

enum class HeaderRule {
    keep,
    drop,
    to_x_received,   /* renamed */
    edited_subject,  /* dropped where the list writes a subject of its own */
    loop_check,      /* kept after the loop check */
    own_errors_to,   /* kept; the message has one */
    own_reply_to,    /* dropped where the list puts its own, else kept */
    mailbox_envelope /* dropped as the first line of the message */
};

struct HeaderRow {
    const char *name; /* with its colon */
    HeaderRule rule;
    bool skip_blank; /* one blank before the value is not part of it */
    int (*collect)(DeliveryJob *job, char *value); /* null: the value does not matter */
    const char *failure;                           /* log text when collect answers -1 */
};

/* Sixteen rows; the index of a row is what job->header_index holds. */
extern const HeaderRow header_rows[];

/* The row whose name the line begins with, or -1. */
int find_header_row(const char *line);

#endif
