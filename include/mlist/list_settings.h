/* The settings of one list: the "init" file laid over the defaults in g_mlit. */
#ifndef MLIST_LIST_SETTINGS_H
#define MLIST_LIST_SETTINGS_H

#include <stddef.h>
#include <stdint.h>

/* Commands, as bits of the two command masks. */
enum {
    COMMAND_HELP = 0,
    COMMAND_SUBSCRIBE = 1,
    COMMAND_UNSUBSCRIBE = 2,
    COMMAND_MEMBER = 3,
    COMMAND_OFF = 4,
    COMMAND_ON = 5,
    COMMAND_SUMMARY = 6,
    COMMAND_GET = 7,
    COMMAND_STAT = 8,
    COMMAND_DIGEST = 9,
    COMMAND_PUSH = 10
};
#define COMMAND_BIT(number) (1u << (number))
#define ALL_COMMANDS 2047u

enum { SUBJECT_EDIT = 0, SUBJECT_NOEDIT = 1 };
enum { PRECEDENCE_JUNK = 0, PRECEDENCE_BULK = 1, PRECEDENCE_LIST = 2 };
enum { REPLYEDIT_ADD = 0, REPLYEDIT_CHANGE = 1, REPLYEDIT_NO = 2 };
enum { MEMBER_QUIT = 0, MEMBER_ON = 1, MEMBER_OFF = 2, MEMBER_DIGEST = 3 };

struct ListSettings {
    uint32_t command_mask;           /* "cmd=": bit n enables command n */
    int32_t subject_mode;            /* "subject=": SUBJECT_ */
    int32_t precedence;              /* "precedence=": PRECEDENCE_ */
    int32_t journal;                 /* "journal=": messages that the archive keeps */
    uint32_t nonmember_command_mask; /* "vstrc=": commands open to non-members */
    int32_t summary_limit;           /* "maxsummary=" */
    int32_t size_word;               /* no key; nothing reads it */
    int32_t count_word;              /* no key; nothing reads it */
    int32_t digest_time;             /* "time=": minute of the day */
    char subject_format[64];         /* "subjectf=" */
    char reply_to[128];              /* "replyto=" */
    int32_t nonmembers_may_post;     /* "vstrml=": 1 grant, 0 deny */
    int32_t default_status;          /* "defstatus=": MEMBER_ */
    int32_t reply_to_mode;           /* "replyedit=": REPLYEDIT_ */
    int32_t confirmation;            /* "confirm=": days, 0 none */
    int32_t size_limit;              /* "maxmsgsize=": kilobytes, 0 none */
    char web_password[68];           /* "webpasswd=" */
};

#ifdef __cplusplus
static_assert(sizeof(ListSettings) == 9 * 4 + 64 + 128 + 5 * 4 + 68);
#endif

#endif
