/* Writes the locks that a worker takes and gives back on its line of the board. */
#ifndef TESTS_CONCURRENCY_LOCK_WATCH_H
#define TESTS_CONCURRENCY_LOCK_WATCH_H

#include "module/os.h"

/* The kernel's calls, watched. */
OsCalls watched_calls();

#endif
