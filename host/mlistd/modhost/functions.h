/* The functions that the process exports for the module (mlist/host_functions.h). */
#ifndef HOST_MLISTD_MODHOST_FUNCTIONS_H
#define HOST_MLISTD_MODHOST_FUNCTIONS_H

#include <stdio.h>

/* Where disk2stdout() finds the calling thread's sink: the module's own accessor. */
void set_sink_accessor(FILE *(*accessor)());

#endif
