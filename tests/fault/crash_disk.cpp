#include "tests/fault/crash_disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "tests/support/temp_list.h"

namespace fs = std::filesystem;
using Change = CrashDisk::Change;

/* -- trees -- */

bool operator<(const DiskImage &left, const DiskImage &right)
{
    return std::tie(left.names, left.contents) < std::tie(right.names, right.contents);
}

DiskImage read_image(const std::string &root)
{
    DiskImage image;
    std::map<ino_t, int> files;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        const std::string name = entry.path().lexically_relative(root).string();
        struct stat status;
        EXPECT_EQ(0, lstat(entry.path().c_str(), &status));
        if (S_ISDIR(status.st_mode)) {
            image.names[name] = DiskImage::DIRECTORY;
            continue;
        }
        const int file = files.emplace(status.st_ino, static_cast<int>(files.size())).first->second;
        image.names[name] = file;
        image.contents[file] = read_file(entry.path().string());
    }
    return image;
}

void write_image(const std::string &root, const DiskImage &image)
{
    for (const auto &entry : fs::directory_iterator(root))
        fs::remove_all(entry.path());
    std::map<int, std::string> written;
    for (const auto &[name, file] : image.names) { /* a directory sorts before what it holds */
        const std::string path = root + "/" + name;
        if (file == DiskImage::DIRECTORY) {
            fs::create_directory(path);
        } else if (const auto other = written.find(file); other != written.end()) {
            fs::create_hard_link(other->second, path);
        } else {
            write_file(path, image.contents.at(file));
            written[file] = path;
        }
    }
}

static std::string directory_of(const std::string &name)
{
    const size_t slash = name.rfind('/');
    return slash == std::string::npos ? "" : name.substr(0, slash);
}

/* -- what reached the disk -- */

static bool is_about_names(const Change &change)
{
    return change.kind == Change::set_name || change.kind == Change::drop_name ||
           change.kind == Change::move_name;
}

static void apply(DiskImage *disk, const Change &change)
{
    std::string &content = disk->contents[change.file];
    switch (change.kind) {
    case Change::write:
        content.resize(std::max(content.size(), change.at + change.bytes.size()));
        content.replace(change.at, change.bytes.size(), change.bytes);
        break;
    case Change::lengthen:
        content.resize(std::max(content.size(), static_cast<size_t>(change.at)));
        break;
    case Change::shorten:
        content.resize(change.at);
        break;
    case Change::set_name:
        disk->names[change.name] = change.file;
        break;
    case Change::move_name:
        disk->names[change.second_name] = change.file;
        disk->names.erase(change.name);
        break;
    case Change::drop_name:
        disk->names.erase(change.name);
        break;
    case Change::sync_file:
    case Change::sync_names:
        break;
    }
}

/* What is on the disk for certain at a moment, and what may be. */
struct Uncertain {
    DiskImage disk;
    std::vector<const Change *> pending;
};

/* Moves what the sync covers from the pending changes to the disk. */
static void settle(Uncertain *state, const Change &sync)
{
    std::vector<const Change *> left;
    for (const Change *change : state->pending) {
        const bool covered = sync.kind == Change::sync_file
                                 ? !is_about_names(*change) && change->file == sync.file
                                 : is_about_names(*change) && change->directory == sync.directory;
        if (covered)
            apply(&state->disk, *change);
        else
            left.push_back(change);
    }
    state->pending = left;
}

static bool share_a_name(const Change &one, const Change &other)
{
    if (!is_about_names(one) || !is_about_names(other)) return false;
    for (const std::string *name : {&one.name, &one.second_name})
        if (!name->empty() && (*name == other.name || *name == other.second_name)) return true;
    return false;
}

using Choice = std::vector<bool>; /* which of the pending changes happened */

/* A name that is in a later state has left its earlier ones, and what went with them is done. */
static Choice completed(Choice choice, const std::vector<const Change *> &pending)
{
    for (size_t later = pending.size(); later-- > 0;)
        for (size_t earlier = 0; choice[later] && earlier < later; ++earlier)
            if (share_a_name(*pending[later], *pending[earlier])) choice[earlier] = true;
    return choice;
}

/* Choices among the changes of one directory: all of them where they are few, else none, all, each
   alone or with one other, and all but one. */
static std::vector<Choice> choices_among(const std::vector<size_t> &members, const Choice &others)
{
    std::vector<Choice> choices;
    const auto choose = [&](const std::function<bool(size_t)> &chosen) {
        Choice choice = others;
        for (size_t i = 0; i < members.size(); ++i)
            choice[members[i]] = chosen(i);
        choices.push_back(choice);
    };
    const size_t count = members.size();
    if (count <= 6) {
        for (unsigned mask = 0; mask < 1u << count; ++mask)
            choose([=](size_t i) { return mask >> i & 1; });
        return choices;
    }
    choose([](size_t) { return false; });
    choose([](size_t) { return true; });
    for (size_t one = 0; one < count; ++one) {
        choose([=](size_t i) { return i != one; });
        for (size_t other = one; other < count; ++other)
            choose([=](size_t i) { return i == one || i == other; });
    }
    return choices;
}

static std::set<Choice> all_choices(const std::vector<const Change *> &pending)
{
    std::map<std::string, std::vector<size_t>> directories;
    for (size_t i = 0; i < pending.size(); ++i)
        directories[pending[i]->directory].push_back(i);
    std::set<Choice> choices = {Choice(pending.size(), false)};
    for (const auto &[directory, members] : directories)
        for (const bool others : {false, true})
            for (const Choice &choice : choices_among(members, Choice(pending.size(), others)))
                choices.insert(completed(choice, pending));
    return choices;
}

/* Without files that have no name, and names in directories that are not there; files numbered in
   the order of their names, so that equal trees are equal. */
static DiskImage tidied(const DiskImage &disk)
{
    DiskImage image;
    std::map<int, int> numbers;
    for (const auto &[name, file] : disk.names) {
        const std::string directory = directory_of(name);
        if (!directory.empty() && !image.names.contains(directory)) continue;
        if (file == DiskImage::DIRECTORY) {
            image.names[name] = file;
            continue;
        }
        const int number = numbers.emplace(file, static_cast<int>(numbers.size())).first->second;
        image.names[name] = number;
        const auto content = disk.contents.find(file);
        image.contents[number] = content != disk.contents.end() ? content->second : "";
    }
    return image;
}

std::vector<DiskImage> CrashDisk::images_at(size_t moment) const
{
    Uncertain state = {before_, {}};
    for (size_t i = 0; i < moment; ++i) {
        const Change &change = changes_[i];
        if (change.kind == Change::sync_file || change.kind == Change::sync_names)
            settle(&state, change);
        else
            state.pending.push_back(&change);
    }
    std::set<DiskImage> images;
    for (const Choice &choice : all_choices(state.pending)) {
        DiskImage disk = state.disk;
        for (size_t i = 0; i < choice.size(); ++i)
            if (choice[i]) apply(&disk, *state.pending[i]);
        images.insert(tidied(disk));
    }
    return {images.begin(), images.end()};
}

/* -- writing changes down -- */

static CrashDisk *current;

struct CrashDiskCalls {
    static const OsCalls &real() { return *current->former_; }

    /* The name below the root, or "" for what is elsewhere. */
    static std::string inside(const char *path)
    {
        const std::string whole = path, &root = current->root_;
        return whole.starts_with(root + "/") ? whole.substr(root.size() + 1) : "";
    }

    static void note(Change change)
    {
        if (is_about_names(change)) change.directory = directory_of(change.name);
        current->changes_.push_back(std::move(change));
    }

    static void note_data(Change::Kind kind, int file, off_t at, const std::string &bytes = "")
    {
        note({kind, file, at, bytes, "", "", current->directories_[file]});
    }

    static int new_file(const std::string &name)
    {
        const int file = current->next_file_++;
        current->sizes_[file] = 0;
        current->directories_[file] = directory_of(name);
        current->names_[name] = file;
        note({Change::set_name, file, 0, "", name, "", ""});
        return file;
    }

    static void resize(int file, off_t size)
    {
        off_t &now = current->sizes_[file];
        if (size != now) note_data(size < now ? Change::shorten : Change::lengthen, file, size);
        now = size;
    }

    /* In two halves: the disk may have one of them. */
    static void put(int fd, const void *data, ssize_t size, off_t at)
    {
        const auto found = current->open_files_.find(fd);
        if (found == current->open_files_.end() || size <= 0) return;
        const int file = found->second;
        const std::string bytes(static_cast<const char *>(data), static_cast<size_t>(size));
        if (at + size > current->sizes_[file]) resize(file, at + size);
        const size_t half = bytes.size() / 2;
        if (half > 0) note_data(Change::write, file, at, bytes.substr(0, half));
        note_data(Change::write, file, at + static_cast<off_t>(half), bytes.substr(half));
    }

    static int open(const char *path, int flags, mode_t mode)
    {
        const int fd = real().open(path, flags, mode);
        const std::string name = inside(path);
        if (fd < 0 || name.empty()) return fd;
        if (flags & O_DIRECTORY) {
            current->open_directories_[fd] = name;
            return fd;
        }
        const auto known = current->names_.find(name);
        const int file = known != current->names_.end() ? known->second : new_file(name);
        if (flags & O_TRUNC) resize(file, 0);
        current->open_files_[fd] = file;
        return fd;
    }

    static int close(int fd)
    {
        current->open_files_.erase(fd);
        current->open_directories_.erase(fd);
        return real().close(fd);
    }

    static ssize_t write(int fd, const void *data, size_t size)
    {
        const ssize_t written = real().write(fd, data, size);
        put(fd, data, written, lseek(fd, 0, SEEK_CUR) - written);
        return written;
    }

    static ssize_t pwrite(int fd, const void *data, size_t size, off_t at)
    {
        const ssize_t written = real().pwrite(fd, data, size, at);
        put(fd, data, written, at);
        return written;
    }

    static int ftruncate(int fd, off_t size)
    {
        const int result = real().ftruncate(fd, size);
        const auto found = current->open_files_.find(fd);
        if (result == 0 && found != current->open_files_.end()) resize(found->second, size);
        return result;
    }

    static std::string name_of(int file)
    {
        for (const auto &[name, other] : current->names_)
            if (other == file) return name;
        return "";
    }

    /* The disk is not really synced: nobody pulls the plug on the test. */
    static int fsync(int fd)
    {
        Change sync = {Change::sync_file, 0, 0, "", "", "", ""};
        std::string name;
        if (const auto file = current->open_files_.find(fd); file != current->open_files_.end()) {
            sync.file = file->second;
            name = name_of(sync.file);
        } else if (const auto dir = current->open_directories_.find(fd);
                   dir != current->open_directories_.end()) {
            sync.kind = Change::sync_names;
            sync.directory = dir->second;
            name = dir->second + "/";
        } else {
            return 0;
        }
        const int nth = current->seen_[name]++;
        if (name == current->left_out_ &&
            (nth == current->left_out_nth_ || current->left_out_nth_ == EVERY_SYNC))
            return 0;
        current->syncs_.push_back({name, nth, is_due(sync)});
        note(sync);
        return 0;
    }

    /* Whether anything has happened to it since its last sync. */
    static bool is_due(const Change &sync)
    {
        for (size_t i = current->changes_.size(); i-- > 0;) {
            const Change &change = current->changes_[i];
            if (change.kind == sync.kind && change.file == sync.file &&
                change.directory == sync.directory)
                return false;
            const bool is_file = sync.kind == Change::sync_file;
            const bool about_names = is_about_names(change);
            if (is_file && !about_names && change.kind < Change::set_name &&
                change.file == sync.file)
                return true;
            if (!is_file && about_names && change.directory == sync.directory) return true;
        }
        return false;
    }

    static int link(const char *from, const char *to)
    {
        const int result = real().link(from, to);
        if (result < 0) return result;
        const int file = current->names_.at(inside(from));
        current->names_[inside(to)] = file;
        note({Change::set_name, file, 0, "", inside(to), "", ""});
        return result;
    }

    static int rename(const char *from, const char *to)
    {
        const int result = real().rename(from, to);
        if (result < 0) return result;
        const std::string name = inside(from), second = inside(to);
        EXPECT_EQ(directory_of(name), directory_of(second)) << "the model knows one directory";
        const int file = current->names_.at(name);
        current->names_.erase(name);
        current->names_[second] = file;
        note({Change::move_name, file, 0, "", name, second, ""});
        return result;
    }

    static int unlink(const char *path)
    {
        const int result = real().unlink(path);
        const std::string name = inside(path);
        if (result == 0 && current->names_.erase(name) > 0)
            note({Change::drop_name, 0, 0, "", name, "", ""});
        return result;
    }

    static int mkdir(const char *path, mode_t mode)
    {
        const int result = real().mkdir(path, mode);
        if (result == 0)
            note({Change::set_name, DiskImage::DIRECTORY, 0, "", inside(path), "", ""});
        return result;
    }

    static int rmdir(const char *path)
    {
        const int result = real().rmdir(path);
        if (result == 0) note({Change::drop_name, 0, 0, "", inside(path), "", ""});
        return result;
    }
};

CrashDisk::CrashDisk(const std::string &root)
    : root_(root), former_(os), calls_(*os), before_(read_image(root))
{
    names_ = before_.names;
    for (const auto &[file, content] : before_.contents)
        sizes_[file] = static_cast<off_t>(content.size());
    for (const auto &[name, file] : before_.names)
        directories_.emplace(file, directory_of(name));
    next_file_ = static_cast<int>(before_.contents.size());
    calls_.open = CrashDiskCalls::open;
    calls_.close = CrashDiskCalls::close;
    calls_.write = CrashDiskCalls::write;
    calls_.pwrite = CrashDiskCalls::pwrite;
    calls_.fsync = CrashDiskCalls::fsync;
    calls_.ftruncate = CrashDiskCalls::ftruncate;
    calls_.link = CrashDiskCalls::link;
    calls_.rename = CrashDiskCalls::rename;
    calls_.unlink = CrashDiskCalls::unlink;
    calls_.mkdir = CrashDiskCalls::mkdir;
    calls_.rmdir = CrashDiskCalls::rmdir;
    current = this;
    os = &calls_;
}

CrashDisk::~CrashDisk()
{
    os = former_;
    current = nullptr;
}

void CrashDisk::leave_out_sync(const std::string &name, int nth)
{
    left_out_ = name;
    left_out_nth_ = nth;
}
