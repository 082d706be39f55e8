/* Comparison with files of tests/golden. */
#ifndef TESTS_GOLDEN_H
#define TESTS_GOLDEN_H

#include <string>

/* Expects text to equal tests/golden/NAME.  With MLIST_REWRITE_GOLDEN=1 in the environment the
   file is written instead, and the test fails to say so: look at the difference, then run again. */
void expect_golden(const std::string &name, const std::string &text);

/* The text with every byte that does not show escaped: \r, \n, \t, \xNN. */
std::string visible(const std::string &text);

#endif
