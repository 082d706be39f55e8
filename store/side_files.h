/* The side files of a control file: the only place that knows their endings.

   For the operations that rewrite a control file; everyone else sees f_recover() and f_renew(). */
#ifndef STORE_SIDE_FILES_H
#define STORE_SIDE_FILES_H

#include "module/job.h"
#include "store/ntio.h"

struct SideFiles {
    char new_path[PATH_SIZE]; /* "<path>.new": the next contents */
    char old_path[PATH_SIZE]; /* "<path>.old": the previous ones; exists: "<path>.new" counts */
};

/* Their names.  0, or -1 with ENAMETOOLONG. */
[[nodiscard]] int name_side_files(const char *path, SideFiles *out);

/* Before "<path>.new" is made: removes an old one that stands alone, for a writer that died with
   the new one half written would look as if it had finished.  0, or -1 with errno. */
[[nodiscard]] int clear_old_file(const SideFiles *files);

/* Clears and creates "<path>.new" for writing.  Null with errno on failure, nothing logged. */
[[nodiscard]] FileRecord *open_new_file(const SideFiles *files);

/* Removes "<path>.new": nothing is to change, or writing it failed.  errno is kept. */
void drop_new_file(const SideFiles *files);

/* -- small files, whose contents are at hand: one sync of the directory instead of two -- */

/* Opens the next contents for writing under the name "<path>.old", which means nothing alone; one
   that lies there is overwritten.  After f_recover(), which leaves no "<path>.new".  Null with
   errno on failure, nothing logged. */
[[nodiscard]] FileRecord *open_draft(const SideFiles *files);

/* Removes a draft that could not be written.  errno is kept. */
void drop_draft(const SideFiles *files);

/* What a file holds and is to hold. */
struct Contents {
    const char *before; /* null: not known, the file is read */
    size_t before_size;
    const char *after;
    size_t after_size;
};

/* f_renew() with a draft that has been closed. */
int renew_from_draft(const char *path, const Contents *contents);

#endif
