/* The slow, obvious way from a settings file to the settings of a list. */
#ifndef TESTS_REFERENCE_SETTINGS_H
#define TESTS_REFERENCE_SETTINGS_H

#include <string>

#include "mlist/list_settings.h"

namespace reference
{
ListSettings read_settings(const std::string &contents, const ListSettings &defaults);

/* A number as strtol() reads it, held within 32 bits. */
int number_of(const std::string &text);
} // namespace reference

#endif
