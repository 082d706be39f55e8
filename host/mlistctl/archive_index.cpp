#include "host/mlistctl/archive_index.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/text.h"
#include "host/mlistctl/failure.h"

/* Beyond this many a list of names helps nobody. */
constexpr size_t max_named_faults = 20;

static std::vector<IndexRecord> read_records(int fd)
{
    std::vector<IndexRecord> records;
    struct stat status;
    if (fstat(fd, &status) != 0) return records;
    records.resize(static_cast<size_t>(status.st_size) / sizeof(IndexRecord));
    const ssize_t got = read_range(fd, 0, reinterpret_cast<char *>(records.data()),
                                   records.size() * sizeof(IndexRecord));
    records.resize(got < 0 ? 0 : static_cast<size_t>(got) / sizeof(IndexRecord));
    for (IndexRecord &record : records)
        record = {le32toh(record.uid), le32toh(record.flags), le32toh(record.header_size),
                  le32toh(record.size)};
    return records;
}

namespace
{

/* The index's lock, held for as long as the object lives. */
class LockedIndex
{
  public:
    explicit LockedIndex(const std::string &archive) : name_(archive + "/#mix")
    {
        /* the driver would wait on for ever where the file is no file */
        if (access(name_.c_str(), F_OK) == 0)
            fd_ = mllk_open(name_.c_str(), O_RDWR | O_CLOEXEC, 0600);
        if (fd_ < 0) fault_ = errno_text("the archive's index cannot be opened, " + name_);
    }
    ~LockedIndex()
    {
        if (fd_ >= 0) mllk_close(fd_);
    }
    LockedIndex(const LockedIndex &) = delete;
    LockedIndex &operator=(const LockedIndex &) = delete;

    [[nodiscard]] ArchiveIndex read() const
    {
        ArchiveIndex index;
        index.fault = fault_;
        if (fd_ < 0) return index;
        index.messages = read_records(fd_);
        if (index.messages.empty()) {
            index.fault = "the archive's index is cut short, " + name_;
            return index;
        }
        index.readable = true;
        index.next_uid = index.messages[0].uid;
        index.uid_validity = index.messages[0].flags;
        index.messages.erase(index.messages.begin());
        return index;
    }

  private:
    std::string name_, fault_;
    int fd_ = -1;
};

} // namespace

ArchiveIndex read_archive_index(const std::string &archive)
{
    return LockedIndex(archive).read();
}

/* The message files, as numbers; what is no number is none of the archive's. */
static std::vector<uint32_t> message_files(const std::string &archive)
{
    std::vector<uint32_t> uids;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(archive + "/#msg", error)) {
        auto number = parse_number(entry.path().filename().string());
        if (number && *number > 0 && *number <= UINT32_MAX)
            uids.push_back(static_cast<uint32_t>(*number));
    }
    std::sort(uids.begin(), uids.end());
    return uids;
}

static void compare_message(const std::string &archive, const IndexRecord &record,
                            std::vector<std::string> &faults)
{
    struct stat status;
    std::string name = archive + "/#msg/" + std::to_string(record.uid);
    if (stat(name.c_str(), &status) != 0)
        faults.push_back(errno_text("message " + std::to_string(record.uid) + " has no file"));
    else if (static_cast<uint64_t>(status.st_size) != record.size)
        faults.push_back("message " + std::to_string(record.uid) + " has " +
                         std::to_string(status.st_size) + " bytes, its index says " +
                         std::to_string(record.size));
}

static void check_order(const ArchiveIndex &index, std::vector<std::string> &faults)
{
    uint32_t last = 0;
    for (const IndexRecord &record : index.messages) {
        if (record.uid <= last)
            faults.push_back("message " + std::to_string(record.uid) + " is out of order");
        last = record.uid;
    }
    if (last >= index.next_uid)
        faults.push_back("the next number " + std::to_string(index.next_uid) +
                         " was given out already");
}

static void check_strays(const std::string &archive, const ArchiveIndex &index,
                         std::vector<std::string> &faults)
{
    std::vector<uint32_t> known;
    for (const IndexRecord &record : index.messages)
        known.push_back(record.uid);
    std::sort(known.begin(), known.end());
    for (uint32_t uid : message_files(archive))
        if (!std::binary_search(known.begin(), known.end(), uid))
            faults.push_back("message file " + std::to_string(uid) + " is not in the index");
}

std::vector<std::string> archive_faults(const std::string &archive)
{
    LockedIndex lock(archive); /* the files must not come and go while they are compared */
    ArchiveIndex index = lock.read();
    if (!index.readable) return {index.fault};
    std::vector<std::string> faults;
    check_order(index, faults);
    for (const IndexRecord &record : index.messages)
        compare_message(archive, record, faults);
    check_strays(archive, index, faults);
    if (faults.size() > max_named_faults) {
        size_t more = faults.size() - max_named_faults;
        faults.resize(max_named_faults);
        faults.push_back("and " + std::to_string(more) + " more");
    }
    return faults;
}
