#include "tests/support/temp_list.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "mlist/mlist.h"
#include "mlist/output.h"

namespace fs = std::filesystem;

TempDir::TempDir() : TempDir(fs::temp_directory_path().string()) {}

TempDir::TempDir(const std::string &below)
{
    std::string name = (fs::path(below) / "mlist-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = name;
}

TempDir::~TempDir()
{
    std::error_code ignored; /* a test that left a mount or an immutable file says so itself */
    fs::remove_all(path_, ignored);
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void write_file(const std::string &path, const std::string &content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path);
}

bool exists(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

std::vector<std::string> list_directory(const std::string &path)
{
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto &entry : fs::directory_iterator(path, missing))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string tree_text(const std::string &path)
{
    std::vector<std::string> lines;
    std::error_code missing;
    for (const auto &entry : fs::recursive_directory_iterator(path, missing)) {
        struct stat status;
        if (lstat(entry.path().c_str(), &status) != 0) continue;
        char mode[16];
        snprintf(mode, sizeof(mode), "%06o", static_cast<unsigned>(status.st_mode));
        std::string line = fs::relative(entry.path(), path).string() + "\t" + mode;
        if (S_ISREG(status.st_mode))
            line += "\t" + std::to_string(status.st_size) + "\t" + read_file(entry.path().string());
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

/* The settings that ModuleInitialize() would put into g_mlit. */
static ListSettings plain_settings()
{
    ListSettings settings = {};
    settings.command_mask = ALL_COMMANDS;
    settings.precedence = PRECEDENCE_LIST;
    settings.journal = 1000;
    settings.nonmember_command_mask = ALL_COMMANDS;
    settings.summary_limit = 500;
    settings.size_word = 102400;
    settings.count_word = 1;
    settings.digest_time = 780;
    strcpy(settings.subject_format, "[%M:%S]");
    settings.nonmembers_may_post = 1;
    settings.default_status = MEMBER_ON;
    return settings;
}

TempList::TempList(const std::string &list, const std::string &domain)
    : list_(list), domain_(domain), job_(std::make_unique<DeliveryJob>())
{
    snprintf(g_path_mlist, sizeof(g_path_mlist), "%s/control", dir_.path().c_str());
    snprintf(g_mbox_list, sizeof(g_mbox_list), "%s/box", dir_.path().c_str());
    fs::create_directories(control("msg"));
    fs::create_directories(control("jnl"));
    fs::create_directories(fs::path(box()).parent_path());
    for (const char *name :
         {"member", "active", "digest", "grant", "subscribe", "confirm", "dgtstat", "status"})
        put(name, "");

    *job_ = DeliveryJob{};
    job_->output = mlist_get_output();
    g_mlit = plain_settings();
    job_->settings = g_mlit;
    snprintf(job_->list_name, sizeof(job_->list_name), "%s", list.c_str());
    snprintf(job_->domain, sizeof(job_->domain), "%s", domain.c_str());
    job_->lock_fd = -1;
    job_->header_index = -1;
    job_->content_kind = CONTENT_PLAIN;
    job_->thread_id = gettid();
}

TempList::~TempList() = default;

std::string TempList::control(const std::string &name) const
{
    return root() + "/control/" + domain_ + "/" + list_ + (name.empty() ? "" : "/" + name);
}

std::string TempList::box(const std::string &name) const
{
    return root() + "/box/" + domain_ + "/" + list_ + "/INBOX" + (name.empty() ? "" : "/" + name);
}

void TempList::put(const std::string &name, const std::string &content)
{
    write_file(control(name), content);
}

std::string TempList::get(const std::string &name) const
{
    return read_file(control(name));
}
