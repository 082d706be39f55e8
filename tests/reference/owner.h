/* The slow, obvious way from a From value to a bare address. */
#ifndef TESTS_REFERENCE_OWNER_H
#define TESTS_REFERENCE_OWNER_H

#include <string>

namespace reference
{
std::string owner(const std::string &from);
}

#endif
