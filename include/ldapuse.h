/* libldapuse.so: the host's configuration and per-list texts.

   The module calls the first four; the rest is for the host that owns the process.  Calls may come
   from any thread.  No call blocks without bound. */
#ifndef LDAPUSE_H
#define LDAPUSE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Results of the look-ups. */
enum {
    KYT_FOUND = 0,
    KYT_NOT_FOUND = 0x10000002,
    KYT_ERROR = 0x10000001 /* any other value is an error as well */
};

/* Size of the text buffers below, NUL included. */
#define KYT_TEXT_SIZE 4096
#define KYT_SERVICE_TEXT_SIZE 264

/* Opens the configuration.  KYT_FOUND, or an error; a missing configuration is not an error. */
int kyt_conf_init(int mode);

/* The SMTP service configuration: three numbers, a text, six numbers, the log level.  An output
   without a configured value is left as it was.  Any pointer may be null. */
int kyt_smtp_servicesconf_search(int32_t *n1, int32_t *n2, int32_t *n3, char *text264, int32_t *n4,
                                 int32_t *n5, int32_t *n6, int32_t *n7, int32_t *n8, int32_t *n9,
                                 int32_t *log_level);

/* The list's welcome text, EUC-JP. */
int kyt_ml_welcomemsg_search(const char *domain, const char *list, char *buffer4096);

/* The list's help text, EUC-JP, one piece a call: cursor starts at 0 and is the library's,
 *more tells whether another call follows. */
int kyt_ml_helpmsg_search(const char *domain, const char *list, int32_t *cursor, char *line4096,
                          int32_t *more);

/* Chooses the directory of the files backend: DIR/services.toml and DIR/lists/DOMAIN/LIST/welcome
   and help.  Null or "" means none: every look-up answers "not found".  0, or -1 with errno
   ENAMETOOLONG.  Call before kyt_conf_init(). */
int kyt_conf_set_directory(const char *directory);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
