/* The command line of mlistd. */
#ifndef HOST_MLISTD_OPTIONS_H
#define HOST_MLISTD_OPTIONS_H

#include <string>

struct Options {
    enum class Action { serve, check_config, print_config, version, help, usage_error };
    Action action = Action::serve;
    std::string config_file; /* "": the usual one if it is there, else the defaults */
};

/* Says on stderr what it does not understand. */
Options parse_options(int argc, char **argv);

/* The text of --help. */
extern const char usage_text[];

#endif
