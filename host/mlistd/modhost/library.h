/* The module, loaded and bound: the only place that names its symbols. */
#ifndef HOST_MLISTD_MODHOST_LIBRARY_H
#define HOST_MLISTD_MODHOST_LIBRARY_H

#include <string>

#include "host/base/result.h"
#include "host/base/settings.h"
#include "mlist/admin.h"
#include "mlist/mlist.h"

/* Entry points and variables of the loaded module. */
struct ModuleLibrary {
    decltype(&ModuleInitialize) initialize;
    decltype(&ModuleMain) main;
    decltype(&f_recover) recover;
    decltype(&mlist_set_output) set_output;
    decltype(&mlist_get_output) get_output;
    decltype(&mlist_session_open) session_open;
    decltype(&mlist_session_close) session_close;
    decltype(&mlist_derive) derive;
    decltype(&get_mlini) read_settings; /* under the list's lock */
    const ListSettings *default_settings;
    char (*control_root)[1024];
    char (*archive_root)[1024];
};

/* Loads the module (never unloaded: threads keep keys of it) and binds every name; an error names
   the file or the missing name. */
Result<ModuleLibrary> load_module(const std::string &path);

/* The file to load where the settings name none: beside the program, else the loader's choice. */
std::string module_file(const Settings &settings);

/* Runs ModuleInitialize(), checks the interface and puts the lists' trees where the settings have
   them.  Once, before any other thread uses the module. */
Result<void> initialize_module(const ModuleLibrary &module, const Settings &settings);

/* A stream that takes everything and keeps nothing; never blocks, any thread may print to it. */
FILE *discarding_stream();

#endif
