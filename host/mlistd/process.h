/* What the daemon does to its own process: limits, user, directories, the service manager. */
#ifndef HOST_MLISTD_PROCESS_H
#define HOST_MLISTD_PROCESS_H

#include <vector>

#include "host/base/fd.h"
#include "host/base/result.h"
#include "host/base/settings.h"

/* Descriptors for all sessions at once, and then some: the module waits for ever when there are
   none, and it may do so under a list's lock. */
void raise_descriptor_limit(const Settings &settings);

/* Started by root: makes the data directory where it is missing and becomes the configured user.
   The user may not get back. */
Result<void> become_user(const Settings &settings);

/* The directories of the settings, with those above them. */
Result<void> make_data_directories(const Settings &settings);

/* Listening sockets from the service manager, moved above the placeholders. */
Result<std::vector<Fd>> passed_sockets();

/* Tells the service manager; nothing without one. */
void notify_manager(const char *state);

/* Blocks the signals that wait_for_signal() waits for; before any thread starts. */
void block_signals();

/* SIGTERM, SIGINT or SIGHUP. */
int wait_for_signal();

#endif
