/* Control files of a list: every operation on them, by file.

   All of it runs under the list lock.  Operations answer 0 or a positive value for success and -1
   for a failure, which is logged once, where it happens. */
#ifndef STORE_FILE_H
#define STORE_FILE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "mlist/mlist.h"
#include "module/job.h"

/* -- paths and small file operations (file_path.cpp, file_util.cpp) -- */

/* "ROOT/DOMAIN/LIST/name" below the control root (archive root for the second) into PATH_SIZE
   bytes.  0, or -1 with ENAMETOOLONG when it does not fit (out is then empty). */
int control_path(char *out, const DeliveryJob *job, const char *name);
int archive_path(char *out, const DeliveryJob *job, const char *name);

/* The same below any root, for a list that no job names. */
int list_path(char *out, const char *root, const char *domain, const char *list, const char *name);

/* Copies in blocks: the target is created 0600 if missing, overwritten in place, cut and synced.
   0, or -1.  KEPT: a failed write is not reported by the copy itself. */
#define COPY_BLOCK_SIZE 65536
int cpyfile(const char *source, const char *target);

/* cpyfile(), and both sizes agree afterwards.  0, or -1 with errno (ENOSPC for a short copy). */
int copy_whole(const char *source, const char *target);

/* Makes the bytes the whole of a file, and syncs it.  The first one creates it (0600) or empties it
   before; the second one overwrites a file that is there, however long it is.  0, or -1 with
   errno. */
int write_anew(const char *target, const char *bytes, size_t size);
int overwrite_whole(const char *target, const char *bytes, size_t size);

int delfile(const char *path);       /* 0 or -1 */
int extfile(const char *path);       /* 1 exists, 0 not */
int64_t stat_size(const char *path); /* bytes, or -1 */

/* Makes "msg" and "jnl".  0, or -1: reply text 470, temporary failure.  A null job: 0. */
int check_directory(DeliveryJob *job);

/* Creates digest, active, member, status, dgtstat, confirm where missing (0660).  Always 1. */
int check_file(DeliveryJob *job);

/* -- crash-safe replacement (file_renew.cpp); f_recover() is in mlist/mlist.h -- */

/* Puts the finished, closed "<path>.new" in place of path.  0, or -1: logged, reply text 472 or
   473, temporary failure; what is left is finished by the next f_recover(). */
int f_renew(const char *path);
int f_renew1(const char *path, const char *new_path, const char *old_path);
int f_renew2(const char *path, const char *new_path, const char *old_path);

/* -- settings (file_init.cpp, file_settings.cpp); get_mlini() is in mlist/mlist.h -- */
struct ParsedSettings;
int read_mlinit(const char *list, const char *domain, ParsedSettings *parsed);

/* The defaults that ModuleInitialize() puts into g_mlit. */
void default_settings(ListSettings *settings);

/* -- member roster (file_member.cpp) -- */
extern const char *const mi2ms[4]; /* "QUT", "ON ", "OFF", "DGT" */
int ms2mi(const char *word);       /* status number of a stored word, 0 unknown */

/* The address's line with its CR LF in line_out (LINE_SIZE bytes), or "" when it is no member. */
int get_member(DeliveryJob *job, const char *address, char *line_out);
const char *get_status(const char *line); /* "ON", "OFF", "DGT" or "QUIT" */

int add_member(DeliveryJob *job, const char *address); /* 0 added, or the status it already has */
int del_member(DeliveryJob *job, const char *address); /* status of the last removed line, 0 none */
int chg_member(DeliveryJob *job, const char *address, const char *word); /* previous, 0 none */

/* Many at once, in one rewrite: all of them, or none.  By the numbers of the set; what is equal to
   an earlier one is not looked at. */
struct RosterSet;
int get_members(DeliveryJob *job, const RosterSet &set, int *known_out); /* 1 has a line, 0 none */
int add_members(DeliveryJob *job, const RosterSet &set, const int *wanted); /* those not 0 */
int del_members(DeliveryJob *job, const RosterSet &set);
int chg_members(DeliveryJob *job, const RosterSet &set, const char *word, int *former_out);

/* -- roster and derived files (file_include.cpp) -- */
int add_mlmbr(DeliveryJob *job, const char *address);
int del_mlmbr(DeliveryJob *job, const char *address);             /* always 0 */
int chg_mlmbr(DeliveryJob *job, const char *address, int status); /* 1 done, 0 no member */
int reflect_include(DeliveryJob *job, const char *type);          /* "active" or "digest" */

/* The same for many: each derived file is made once, and a failure is told, also of a removal. */
int add_mlmbrs(DeliveryJob *job, const RosterSet &set, const int *wanted);
int del_mlmbrs(DeliveryJob *job, const RosterSet &set);
int chg_mlmbrs(DeliveryJob *job, const RosterSet &set, int status, int *former_out);

int notexist_active(DeliveryJob *job); /* 1 none to send to, 0 some */
int notexist_digest(DeliveryJob *job);
int del_active(DeliveryJob *job, int which);

/* -- grant and subscribe lists (file_grant.cpp) -- */

/* 0 with the line that allows the sender in line_out (LINE_SIZE bytes), or "" there. */
int get_grant(DeliveryJob *job, const char *address, char *line_out);
int get_subscribe(DeliveryJob *job, const char *address, char *line_out);
int notexist_grant(DeliveryJob *job); /* always 0 */
int notexist_subscribe(DeliveryJob *job);

/* -- digest status (file_dgtstat.cpp) -- */
int get_dstfile(DeliveryJob *job, const char *path, char *buffer, int size);
int set_dstfile(DeliveryJob *job, const char *path, uint32_t number);
int reset_dstfile(DeliveryJob *job, const char *path);
int anlyzline_dst(char *line, int size, uint32_t number);

/* -- banners and archive hand-off (file_banner.cpp, file_append.cpp) -- */
int insert_banner_t(DeliveryJob *job);
int insert_banner_b(DeliveryJob *job);
int mlappend(DeliveryJob *job);
int binary_to_text(const char *source, const char *target);

#endif
