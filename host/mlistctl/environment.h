/* The daemon's settings, the user that its data belongs to, and the module placed on its trees. */
#ifndef HOST_MLISTCTL_ENVIRONMENT_H
#define HOST_MLISTCTL_ENVIRONMENT_H

#include <string>

#include "host/base/settings.h"

/* Reads the file; where none is named, the usual one if it is there, else the defaults.  Throws a
   Failure (configuration). */
Settings read_environment(const std::string &file);

/* Run by root: becomes the owner of the data directory, so that the daemon can use what we make.
   Makes the directory where it is missing. */
void become_data_owner(const Settings &settings);

/* Loads the module with the settings' roots; its log lines are kept for messages of failures, or
   shown when verbose. */
void start_module(const Settings &settings, bool verbose);

#endif
