/* The settings of mlistd and mlistctl: one record, one table of keys (settings_keys.cpp).

   The file is TOML.  Every key has a default; a file that is named must be there and whole: an
   unknown key, a value of the wrong kind or out of its range, a broken line are errors that name
   the file, the line and the key. */
#ifndef HOST_BASE_SETTINGS_H
#define HOST_BASE_SETTINGS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/base/result.h"

struct Settings {
    /* [paths]: absolute once read; "" in the file means below data */
    std::string data_directory = "/var/lib/mlistd";
    std::string control_root;     /* DATA/control: DOMAIN/LIST/ with the control files */
    std::string archive_root;     /* DATA/archive: DOMAIN/LIST/INBOX */
    std::string spool_directory;  /* DATA/spool: in/ being received, out/ waiting to leave */
    std::string outbox_directory; /* DATA/outbox: one Maildir for each recipient */
    std::string config_directory; /* DATA/conf: services.toml, lists/DOMAIN/LIST/{owners,...} */
    std::string module;           /* "": beside the program, else as the loader finds it */

    /* [process] */
    std::string user;     /* "": stay who started it */
    std::string hostname; /* "": the machine's name */
    int64_t module_gate = 16;
    int64_t shutdown_grace = 30;

    /* [log] */
    std::string log_target = "stderr";
    int64_t log_level = 5;

    /* [lmtp] */
    std::vector<std::string> lmtp_listen = {"127.0.0.1:2424"};
    int64_t lmtp_socket_mode = 0660;
    int64_t lmtp_sessions = 64;
    int64_t lmtp_sessions_per_address = 32;
    int64_t lmtp_recipients = 100;
    int64_t lmtp_message_size = 50 * 1024 * 1024;
    int64_t lmtp_timeout = 300;
    int64_t lmtp_data_timeout = 1800;
    int64_t lmtp_list_wait = 240;

    /* [addresses] */
    std::vector<std::string> control_suffixes = {"-ctl", "-request"};

    /* [relay] */
    std::string relay_target = "outbox";
    int64_t relay_workers = 4;
    int64_t relay_timeout = 300;
    int64_t relay_retry_min = 60;
    int64_t relay_retry_max = 3600;
    int64_t relay_maximum_age = 5 * 86400;
};

/* Name of the program's own machine, for greetings and the module; never empty. */
std::string host_name(const Settings &settings);

/* The file that names the owners of a list, one address a line. */
std::string owners_path(const Settings &settings, std::string_view list, std::string_view domain);

/* CONTROL/DOMAIN/LIST. */
std::string control_path(const Settings &settings, std::string_view list, std::string_view domain);

/* ARCHIVE/DOMAIN/LIST. */
std::string archive_path(const Settings &settings, std::string_view list, std::string_view domain);

/* The defaults, with every path filled in. */
Settings default_settings();

/* Defaults with the file laid over them.  Relative paths are taken from the file's directory.  The
   error is one line, "FILE:LINE: KEY: what is wrong". */
Result<Settings> read_settings(const std::string &file);

/* Where the settings are looked for when no file is named. */
constexpr const char *USUAL_SETTINGS_FILE = "/etc/mlistd/mlistd.toml";

/* The named file; with "" the usual one if it is there, else the defaults. */
Result<Settings> read_settings_or_usual(const std::string &file);

/* The same for a text; file is only named in errors and gives the directory. */
Result<Settings> parse_settings(std::string_view text, const std::string &file);

/* A complete file: every key with its meaning and the value that settings has. */
std::string print_settings(const Settings &settings);

/* How a key's value is written and checked. */
enum class SettingKind : uint8_t { text, path, number, mode, size, duration, listen, suffixes };

/* A key of the file. */
struct SettingKey {
    using Member = std::variant<std::string Settings::*, int64_t Settings::*,
                                std::vector<std::string> Settings::*>;
    const char *table;
    const char *name;
    SettingKind kind;
    Member member;
    int64_t least; /* of a number, a size, a duration; of a text: its greatest length */
    int64_t most;
    const char *help;
};
std::span<const SettingKey> setting_keys();

#endif
