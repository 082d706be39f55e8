/* What the host process provides to the module.  All three are weak: where the process does not
   export them (a host links with -rdynamic), the module's own fallback serves. */
#ifndef MLIST_HOST_FUNCTIONS_H
#define MLIST_HOST_FUNCTIONS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Reads length bytes at offset into a new buffer of the thread's allocator (length + 1 bytes) and
   ends them with NUL; where the file is shorter, what there is.  Null with errno on failure. */
char *disk2memory(int fd, off_t offset, size_t length) __attribute__((weak));

/* Copies length bytes at offset to the calling thread's sink (mlist_get_output()).  0, or -1
   with errno.  A file that is too short is filled up with blanks, so that an announced literal
   never loses its length. */
int disk2stdout(int fd, off_t offset, size_t length) __attribute__((weak));

/* Non-zero lets anyone use the command "push". */
extern int g_debug __attribute__((weak));

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
