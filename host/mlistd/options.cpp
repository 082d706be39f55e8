#include "host/mlistd/options.h"

#include <cstdio>
#include <getopt.h>

const char usage_text[] =
    "usage: mlistd [-c FILE] [-t | -p]\n"
    "  -c, --config FILE    settings (TOML); the usual file is\n"
    "                       /etc/mlistd/mlistd.toml, every key has a default\n"
    "  -t, --check-config   say whether the settings are good, and leave\n"
    "  -p, --print-config   print all settings with their values, and leave\n"
    "  -V, --version        print the version, and leave\n"
    "  -h, --help           print this, and leave\n";

Options parse_options(int argc, char **argv)
{
    static const option long_options[] = {
        {"config", required_argument, nullptr, 'c'}, {"check-config", no_argument, nullptr, 't'},
        {"print-config", no_argument, nullptr, 'p'}, {"version", no_argument, nullptr, 'V'},
        {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0},
    };
    Options options;
    int letter;
    while ((letter = getopt_long(argc, argv, "c:tpVh", long_options, nullptr)) != -1) {
        switch (letter) {
        case 'c':
            options.config_file = optarg;
            break;
        case 't':
            options.action = Options::Action::check_config;
            break;
        case 'p':
            options.action = Options::Action::print_config;
            break;
        case 'V':
            options.action = Options::Action::version;
            break;
        case 'h':
            options.action = Options::Action::help;
            break;
        default:
            options.action = Options::Action::usage_error;
            return options;
        }
    }
    if (optind < argc) {
        fprintf(stderr, "mlistd: what is \"%s\"?\n", argv[optind]);
        options.action = Options::Action::usage_error;
    }
    return options;
}
