#include "host/mlistctl/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/fd.h"
#include "host/base/files.h"
#include "host/mlistctl/failure.h"
#include "mlist/mlist.h"

namespace fs = std::filesystem;

/* Reduced by the file-creation mask, as that of the module's own files is. */
constexpr mode_t file_mode = 0660;

static std::string below(const char *root, const ListAddress &address)
{
    return std::string(root) + "/" + address.domain + "/" + address.list;
}

std::string control_file(const ListAddress &address, std::string_view file)
{
    std::string path = below(g_path_mlist, address);
    return file.empty() ? path : path + "/" + std::string(file);
}

std::string box_directory(const ListAddress &address)
{
    return below(g_mbox_list, address);
}

std::string archive_directory(const ListAddress &address)
{
    return box_directory(address) + "/INBOX";
}

bool list_exists(const ListAddress &address)
{
    struct stat status;
    std::string init = control_file(address, "init");
    if (lstat(init.c_str(), &status) == 0) return S_ISREG(status.st_mode);
    if (errno != ENOENT && errno != ENOTDIR) fail_on_file("cannot look at", init);
    return false;
}

void require_list(const ListAddress &address)
{
    if (list_exists(address)) return;
    throw Failure{CTL_NO_LIST, "there is no list " + address.name(),
                  "make it with: mlistctl list create " + address.name()};
}

static std::vector<std::string> directories_in(const std::string &path)
{
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(path, error))
        if (entry.is_directory(error)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<ListAddress> all_lists()
{
    std::vector<ListAddress> lists;
    for (const std::string &domain : directories_in(g_path_mlist))
        for (const std::string &list : directories_in(std::string(g_path_mlist) + "/" + domain)) {
            ListAddress address{Role::post, list, domain};
            if (list_exists(address)) lists.push_back(address);
        }
    return lists;
}

/* What base/files.h answers, thrown. */
static void require(const Result<void> &done, const std::string &what, const std::string &path)
{
    if (done) return;
    errno = done.error().code;
    fail_on_file(what, path);
}

void make_directories(const std::string &path)
{
    require(make_path(path), "cannot make the directory", path);
}

void make_empty_file(const std::string &path)
{
    Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, file_mode));
    if (!file || fsync(file.get()) != 0) fail_on_file("cannot make the file", path);
}

static void write_text(int fd, std::string_view text, const std::string &path)
{
    while (!text.empty()) {
        ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail_on_file("cannot write", path);
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void write_durably(const std::string &path, const std::string &working, std::string_view text)
{
    unlink(working.c_str()); /* what an interrupted run left */
    Fd file(open(working.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode));
    if (!file) fail_on_file("cannot make the file", working);
    write_text(file.get(), text, working);
    if (fsync(file.get()) != 0) fail_on_file("cannot sync", working);
    if (rename(working.c_str(), path.c_str()) != 0) fail_on_file("cannot put in place", path);
    require(sync_name(path), "cannot sync", path);
}

std::string read_whole(const std::string &path)
{
    auto content = load_file(path);
    if (content) return std::move(*content);
    errno = content.error().code;
    fail_on_file("cannot read", path);
}
