#include "host/mlistctl/environment.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/mlistctl/failure.h"
#include "host/mlistctl/paths.h"
#include "ldapuse.h"
#include "mlist/mlist.h"
#include "mlog.h"

Settings read_environment(const std::string &file)
{
    auto settings = read_settings_or_usual(file);
    if (!settings)
        throw Failure{CTL_BAD_CONFIGURATION, settings.error().text,
                      "correct the file, or name another with --config"};
    return *settings;
}

static void make_data_directory(const Settings &settings)
{
    make_directories(settings.data_directory);
    if (settings.user.empty() || geteuid() != 0) return;
    const passwd *user = getpwnam(settings.user.c_str());
    if (user == nullptr)
        throw Failure{CTL_BAD_CONFIGURATION, "there is no user '" + settings.user + "'",
                      "create the user, or correct process.user"};
    if (chown(settings.data_directory.c_str(), user->pw_uid, user->pw_gid) != 0)
        fail_on_file("cannot give away", settings.data_directory);
}

void become_data_owner(const Settings &settings)
{
    struct stat status;
    const char *directory = settings.data_directory.c_str();
    if (stat(directory, &status) != 0 && errno == ENOENT) make_data_directory(settings);
    if (stat(directory, &status) != 0) fail_on_file("cannot look at", settings.data_directory);
    if (geteuid() != 0 || status.st_uid == 0) return;

    const passwd *user = getpwuid(status.st_uid);
    bool groups_set =
        user ? initgroups(user->pw_name, status.st_gid) == 0 : setgroups(0, nullptr) == 0;
    if (!groups_set || setgid(status.st_gid) != 0 || setuid(status.st_uid) != 0)
        throw Failure{CTL_NO_PERMISSION,
                      errno_text("cannot become the owner of " + settings.data_directory), ""};
}

static void place_root(char (&root)[1024], const std::string &path, const char *key)
{
    if (path.size() >= sizeof(root))
        throw Failure{CTL_BAD_CONFIGURATION, std::string(key) + " is too long", ""};
    memcpy(root, path.c_str(), path.size() + 1);
}

/* What the module says on its way; nobody reads a list's mailbox text here. */
static void discard_output()
{
    if (FILE *null = fopen("/dev/null", "we")) mlist_set_output(null);
}

void start_module(const Settings &settings, bool verbose)
{
    mlog_set_target(verbose ? "stderr" : "memory");
    kyt_conf_set_directory(settings.config_directory.c_str());
    ModuleRecord record{};
    strncpy(record.host_fqdn, host_name(settings).c_str(), sizeof(record.host_fqdn) - 1);
    ModuleInitialize(&record);
    mlog_memory(nullptr, 0, 1);
    place_root(g_path_mlist, settings.control_root, "paths.control");
    place_root(g_mbox_list, settings.archive_root, "paths.archive");
    discard_output();
}
