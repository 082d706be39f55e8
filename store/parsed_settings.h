/* What the settings file of a list says, before it is laid over the defaults. */
#ifndef STORE_PARSED_SETTINGS_H
#define STORE_PARSED_SETTINGS_H

#include <stdint.h>

#include "module/job.h"

/* Long enough for every word that a key knows; what is cut to fit equals none of them. */
#define SETTING_WORD_SIZE 16
#define COMMAND_WORDS 10

/* Zero-filled before the file is read; a key that is absent leaves "" or 0. */
struct ParsedSettings {
    char command[COMMAND_WORDS][SETTING_WORD_SIZE]; /* "cmd=", a word each */
    char subject[SETTING_WORD_SIZE];                /* "subject=" */
    char subject_format[LINE_SIZE];                 /* "subjectf=" */
    char nonmember_posting[SETTING_WORD_SIZE];      /* "vstrml=" */
    char nonmember_commands[SETTING_WORD_SIZE];     /* "vstrc=" */
    char precedence[SETTING_WORD_SIZE];             /* "precedence=" */
    int32_t journal;                                /* "journal=" */
    char digest_time[LINE_SIZE];                    /* "time=" */
    char reply_to_mode[SETTING_WORD_SIZE];          /* "replyedit=" */
    char reply_to[LINE_SIZE];                       /* "replyto=" */
    int32_t default_status;                         /* "defstatus=" */
    int32_t confirmation;                           /* "confirm=" */
    int32_t summary_limit;                          /* "maxsummary=" */
    int32_t size_limit;                             /* "maxmsgsize=" */
    char web_password[LINE_SIZE];                   /* "webpasswd=" */
};

/* A decimal number as the C library reads it, held within 32 bits; no digits give 0. */
int32_t setting_number(const char *text);

#endif
