/* The Delivery job: the working record of one delivery, built on the delivering thread's stack and
   passed by reference to nearly every operation. */
#ifndef MODULE_JOB_H
#define MODULE_JOB_H

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>
#include <type_traits>

#include "mlist/archive.h"
#include "mlist/delivery_request.h"
#include "mlist/list_settings.h"

struct FileRecord;

enum ParseState {
    STATE_BODY = 0,      /* body of a posting */
    STATE_HEADER = 1,    /* header lines */
    STATE_COMMANDS = 2,  /* body of a command mail */
    STATE_FIRST_BODY = 3 /* after the header, before the first line that counts */
};

enum JobFlag : uint32_t {
    JOB_FIRST_LINE = 1,       /* at the first line of the message */
    JOB_SUBJECT_OVERFLOW = 2, /* the subject is complete as it is */
    JOB_COMMAND_MAIL = 4,
    JOB_COMMAND_SEEN = 8, /* a "#" line was found */
    JOB_LOCK_TIMED_OUT = 16
};

/* Header lines that the list still has to add. */
enum HeaderBit : uint32_t {
    ADD_XML_NAME = 1,
    ADD_XMAIL_COUNT = 2,
    ADD_PRECEDENCE = 4,
    ADD_ERRORS_TO = 8, /* cleared, never acted upon */
    ADD_REPLY_TO = 16,
    ADD_UNUSED = 32 /* set, never read */
};

/* Also the banner mode. */
enum ContentKind {
    CONTENT_OTHER = 0, /* not text/plain: no banners */
    CONTENT_PLAIN = 1, /* text/plain of another charset, or no Content-Type at all */
    CONTENT_JIS = 2    /* text/plain in iso-2022-jp */
};

/* The archive's index between two transactions of a delivery: open, not locked. */
struct KeptIndex {
    int32_t fd; /* 0 none: hosts keep that one open themselves */
    dev_t device;
    ino_t inode;
};

#define LIST_NAME_SIZE 64
#define DOMAIN_SIZE 256
#define PATH_SIZE 1024
#define LINE_SIZE 4096

/* Zero-filled at the start; trivially copyable, since it is passed by value on one path. */
struct DeliveryJob {
    FILE *output; /* the thread's sink */
    SubmitOp submit;
    ListSettings settings;
    char list_name[LIST_NAME_SIZE]; /* cleaned */
    char sender[LINE_SIZE];         /* From value, reduced to a bare address at the header's end */
    int32_t parse_state;            /* ParseState */
    uint32_t flags;                 /* JobFlag */
    uint32_t new_number;
    int32_t lock_fd; /* the list lock, -1 when not held */
    FileRecord *journal;
    int32_t header_index; /* row of the header table that the line belongs to, -1 none */
    uint32_t header_mask; /* HeaderBit */
    int32_t thread_id;
    char time_text[32];
    int32_t access_result;        /* 1 when the sender passed the last access look-up */
    char xml_name[LINE_SIZE + 1]; /* the message's X-ML-Name value */
    char domain[DOMAIN_SIZE];     /* cleaned */

    char subject[LINE_SIZE];          /* collected, later the cleaned text */
    char message_id[LINE_SIZE + 1];   /* without its angle brackets */
    char content_type[LINE_SIZE + 1]; /* collected */
    int32_t content_kind;             /* ContentKind */
    MailboxHandle *mailbox;           /* the archive while it is open */
    KeptIndex index;                  /* what numbering leaves for the hand-off */
    uint32_t append_uid;              /* the UID that mlappend() gave to the posting */
    uint32_t journal_size;            /* of the journal when it was closed */
    uint32_t journal_header_size;     /* 0: not known, mlappend() measures the file */
    int32_t oversize;                 /* the posting is larger than the list allows */
    char oversize_reason[64];
};
static_assert(std::is_trivially_copyable_v<DeliveryJob>);

#endif
