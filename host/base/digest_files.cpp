#include "host/base/digest_files.h"

#include "host/base/files.h"

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
    return make_path(asked_push_directory(settings), 0700);
}
