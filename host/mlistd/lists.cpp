#include "host/mlistd/lists.h"

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>

#include "host/base/files.h"
#include "host/base/text.h"
#include "host/mlistd/hostlog.h"

Result<bool> look_for_list(const Settings &settings, const ListAddress &list)
{
    struct stat init;
    const std::string path = control_path(settings, list.list, list.domain) + "/init";
    if (lstat(path.c_str(), &init) == 0) return S_ISREG(init.st_mode) != 0;
    if (errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG) return false;
    return system_error(path);
}

bool list_exists(const Settings &settings, const ListAddress &list)
{
    const auto found = look_for_list(settings, list);
    return found && *found;
}

static std::vector<std::string> directories_in(const std::string &path)
{
    namespace fs = std::filesystem;
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator entry(path, failure), end; !failure && entry != end;
         entry.increment(failure))
        if (entry->is_directory(failure)) names.push_back(entry->path().filename());
    return names;
}

std::vector<ListAddress> all_lists(const Settings &settings)
{
    std::vector<ListAddress> lists;
    for (const std::string &domain : directories_in(settings.control_root)) {
        if (!valid_domain(domain)) continue;
        for (const std::string &name : directories_in(settings.control_root + "/" + domain)) {
            const ListAddress list{Role::post, name, domain};
            if (valid_list_name(name, settings.control_suffixes) && list_exists(settings, list))
                lists.push_back(list);
        }
    }
    return lists;
}

Result<std::vector<std::string>> read_address_lines(const std::string &path)
{
    std::vector<std::string> lines;
    const auto text = load_file(path);
    if (!text && text.error().code == ENOENT) return lines;
    if (!text) return text.error();
    for (const std::string_view line : split(*text, '\n')) {
        const std::string_view address = trim(line);
        if (!address.empty()) lines.emplace_back(address);
    }
    return lines;
}

std::vector<std::string> owners_of(const Settings &settings, const ListAddress &list)
{
    auto lines = read_address_lines(owners_path(settings, list.list, list.domain));
    if (!lines) {
        log_error(LOG_LIST_UNUSABLE, lines.error().text);
        return {};
    }
    std::erase_if(*lines, [](const std::string &line) { return !valid_mailbox(line); });
    return *lines;
}
