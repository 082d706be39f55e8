/* The "init" file of a list: its keys, what each may hold, and the text of a new one. */
#ifndef HOST_MLISTCTL_SETTINGS_TEXT_H
#define HOST_MLISTCTL_SETTINGS_TEXT_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/names.h"

using SettingValues = std::vector<std::pair<std::string, std::string>>; /* key and value */

/* Every key with the value that a new list gets, in the order of the file. */
SettingValues default_settings(const ListAddress &address);

/* Lays "key=value" words over the values; throws a Failure (usage) for an unknown key or a value
   that the list would not understand. */
void apply_settings(SettingValues &values, const std::vector<std::string> &words);

/* The file: a key, "=", its value and CR LF for each. */
std::string init_text(const SettingValues &values);

/* What a list would do with this text that its owner did not mean: one sentence each. */
std::vector<std::string> init_faults(std::string_view text);

#endif
