#include "host/base/digest_files.h"

#include <sys/stat.h>

std::string digest_directory(const Settings &settings)
{
    return settings.data_directory + "/digest";
}

std::string digest_day_path(const Settings &settings, const ListAddress &list)
{
    return digest_directory(settings) + "/" + list.name() + ".day";
}

std::string asked_push_directory(const Settings &settings)
{
    return digest_directory(settings) + "/asked";
}

std::string asked_push_path(const Settings &settings, const ListAddress &list)
{
    return asked_push_directory(settings) + "/" + list.name();
}

Result<void> make_digest_directories(const Settings &settings)
{
    for (const std::string &path : {digest_directory(settings), asked_push_directory(settings)})
        if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return system_error(path);
    return {};
}
