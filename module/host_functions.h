/* The host's functions as the module calls them: the host's own where the process has them, else
   the module's. */
#ifndef MODULE_HOST_FUNCTIONS_H
#define MODULE_HOST_FUNCTIONS_H

#include "mlist/host_functions.h"

bool host_reads_files();                                   /* whether the next is the host's */
char *read_to_memory(int fd, off_t offset, size_t length); /* disk2memory */
int copy_to_sink(int fd, off_t offset, size_t length);     /* disk2stdout */
int debug_switch();                                        /* g_debug */

#endif
