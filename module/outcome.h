/* The numbered outcome texts that a delivery leaves in the host's reply buffer. */
#ifndef MODULE_OUTCOME_H
#define MODULE_OUTCOME_H

#include <stddef.h>

#include "module/job.h"

enum class OutcomeRule {
    always,  /* overwrites what stands in the buffer */
    if_empty /* the first failure keeps its text */
};

struct Outcome {
    int code;
    OutcomeRule rule;
    const char
        *text; /* printf format; the arguments stand in the table in docs/host-interface.md */
};

extern const Outcome outcome_table[];
extern const size_t outcome_count;

/* Writes the text of code into the current request's reply buffer, by its rule, cut at 126
   characters (510: at 127).  errno is kept. */
void put_outcome(int code, ...);

/* A journal write met a full disk: text 480, temporary failure. */
void tmperr_put(DeliveryJob job);

/* The system's text of an error number, at most 127 characters, in the caller's 128 bytes. */
const char *error_text(int error, char *buffer128);

#endif
