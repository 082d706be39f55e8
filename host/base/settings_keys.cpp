/* Every key of the configuration file: its kind is its check, its text is its help. */
#include "host/base/settings.h"

static constexpr int64_t DAY = 86400;
static constexpr int64_t MEGABYTE = 1024 * 1024;

/* The module builds paths of ROOT/DOMAIN/LIST/FILE in 1,024 bytes: a domain may have 159, a list
   name 32, the archive's files below that some 40. */
static constexpr int64_t PATH_LENGTH = 700;
static constexpr int64_t TEXT_LENGTH = 255;

using S = Settings;
using Kind = SettingKind;

static const SettingKey keys[] = {
    {"paths", "data", Kind::path, &S::data_directory, 1, PATH_LENGTH,
     "everything below that the other paths leave open"},
    {"paths", "control", Kind::path, &S::control_root, 0, PATH_LENGTH,
     "the lists' control files; \"\" means DATA/control"},
    {"paths", "archive", Kind::path, &S::archive_root, 0, PATH_LENGTH,
     "the lists' archives; \"\" means DATA/archive"},
    {"paths", "spool", Kind::path, &S::spool_directory, 0, PATH_LENGTH,
     "mail coming in and going out; \"\" means DATA/spool"},
    {"paths", "outbox", Kind::path, &S::outbox_directory, 0, PATH_LENGTH,
     "Maildirs of the relay target \"outbox\"; \"\" means DATA/outbox"},
    {"paths", "config", Kind::path, &S::config_directory, 0, PATH_LENGTH,
     "services.toml and lists/DOMAIN/LIST/ with owners, welcome, help; \"\" means DATA/conf"},
    {"paths", "module", Kind::path, &S::module, 0, PATH_LENGTH,
     "the module; \"\" means ../lib/mlist.so.0 beside the program, else the loader's path"},

    {"process", "user", Kind::text, &S::user, 0, TEXT_LENGTH,
     "user to become when started by root; \"\" stays who it is"},
    {"process", "hostname", Kind::text, &S::hostname, 0, TEXT_LENGTH,
     "fully qualified name of this host; \"\" asks the system"},
    {"process", "module_gate", Kind::number, &S::module_gate, 1, 256,
     "deliveries at a time, over all lists"},
    {"process", "shutdown_grace", Kind::duration, &S::shutdown_grace, 0, DAY,
     "how long mail that is being received may take after SIGTERM"},

    {"log", "target", Kind::text, &S::log_target, 1, PATH_LENGTH,
     "stderr, file:PATH, syslog, journal or none"},
    {"log", "level", Kind::number, &S::log_level, 0, 99,
     "of the daemon's own lines: 1 errors, 3 warnings, 5 notices, 11 trace"},

    {"lmtp", "listen", Kind::listen, &S::lmtp_listen, 0, 16,
     "\"ADDRESS:PORT\" or \"unix:/PATH\"; one text or a list of them"},
    {"lmtp", "socket_mode", Kind::mode, &S::lmtp_socket_mode, 0, 0777,
     "permissions of a unix socket"},
    {"lmtp", "sessions", Kind::number, &S::lmtp_sessions, 1, 10000, "connections at a time"},
    {"lmtp", "sessions_per_address", Kind::number, &S::lmtp_sessions_per_address, 1, 10000,
     "connections at a time from one address"},
    {"lmtp", "recipients", Kind::number, &S::lmtp_recipients, 1, 10000, "recipients of one mail"},
    {"lmtp", "message_size", Kind::size, &S::lmtp_message_size, 1024, 1024 * MEGABYTE,
     "largest mail"},
    {"lmtp", "timeout", Kind::duration, &S::lmtp_timeout, 1, DAY,
     "longest wait for a command, for the next piece of a mail, or for room to answer"},
    {"lmtp", "data_timeout", Kind::duration, &S::lmtp_data_timeout, 1, DAY,
     "longest time for receiving one mail"},
    {"lmtp", "list_wait", Kind::duration, &S::lmtp_list_wait, 1, DAY,
     "longest wait for earlier deliveries to the same list, then 451"},

    {"addresses", "control_suffixes", Kind::suffixes, &S::control_suffixes, 1, 16,
     "LIST + suffix is the address for commands"},

    {"relay", "target", Kind::text, &S::relay_target, 1, TEXT_LENGTH,
     "where mail leaves to: \"outbox\" or \"smtp:HOST:PORT\""},
    {"relay", "workers", Kind::number, &S::relay_workers, 1, 256, "deliveries at a time"},
    {"relay", "timeout", Kind::duration, &S::relay_timeout, 1, DAY,
     "longest wait for an answer of the relay"},
    {"relay", "retry_min", Kind::duration, &S::relay_retry_min, 1, DAY,
     "pause before the second try"},
    {"relay", "retry_max", Kind::duration, &S::relay_retry_max, 1, 30 * DAY,
     "longest pause between tries"},
    {"relay", "maximum_age", Kind::duration, &S::relay_maximum_age, 1, 365 * DAY,
     "what could not be sent for so long goes back to the list's owners"},
};

std::span<const SettingKey> setting_keys()
{
    return keys;
}
