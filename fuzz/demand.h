/* How a fuzzer says what must hold: what does not ends it, and the input is kept. */
#ifndef FUZZ_DEMAND_H
#define FUZZ_DEMAND_H

#include <stdio.h>
#include <stdlib.h>

/* The condition stands in the message, with its place. */
#define demand(condition)                                                                          \
    ((condition)                                                                                   \
         ? (void)0                                                                                 \
         : (fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition), abort()))

#endif
