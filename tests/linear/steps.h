/* Counts what the module does: its basic blocks, and the bytes that functions of the C library walk
   over for it. */
#ifndef TESTS_LINEAR_STEPS_H
#define TESTS_LINEAR_STEPS_H

#include <stdint.h>

#include <functional>

uint64_t steps_of(const std::function<void()> &work);

/* What nobody may write: parsers that walk over the rest of the text at every byte, by themselves
   and by functions of the C library (quadratic.cpp, counted as the module is). */
int quadratic_by_itself(const char *text);
int quadratic_by_library(const char *text);

#endif
