#include "archive/message_bytes.h"

#include <string.h>

#include "module/host_functions.h"
#include "module/host_mem.h"
#include "module/os.h"

static uint32_t worth_holding(const IndexRecord &record, uint32_t most)
{
    if (record.size <= most) return record.size;
    return record.header_size <= most ? record.header_size : 0;
}

MessageBytes::MessageBytes(int fd, const IndexRecord &record, uint32_t most)
    : fd_(fd), expected_(record.size), to_hold_(worth_holding(record, most))
{
}

MessageBytes::~MessageBytes()
{
    host_release(held_);
    host_release(scratch_);
}

static int64_t clamp(uint64_t size, uint64_t start, uint64_t length)
{
    if (start >= size) return 0;
    return static_cast<int64_t>(length < size - start ? length : size - start);
}

/* Bytes of the range that the file has now, or -1 with errno. */
static int64_t clamp_to_file(int fd, uint64_t start, uint64_t length)
{
    struct stat status;
    if (os->fstat(fd, &status) < 0) return -1;
    return clamp(static_cast<uint64_t>(status.st_size), start, length);
}

uint64_t MessageBytes::there(uint64_t start, uint64_t length) const
{
    const int64_t bytes = clamp_to_file(fd_, start, length);
    return bytes > 0 ? static_cast<uint64_t>(bytes) : 0;
}

/* -- holding -- */

/* A first read that ends short just where the index says that the message ends has come to the end
   of the file: asking the kernel once more would only confirm it. */
bool MessageBytes::read_held(size_t want)
{
    while (held_size_ < want && !whole_) {
        const ssize_t got =
            pread_some(fd_, held_ + held_size_, want - held_size_, static_cast<off_t>(held_size_));
        if (got < 0) return held_size_ > 0; /* what is behind fails for whoever asks for it */
        held_size_ += static_cast<size_t>(got);
        whole_ = got == 0 || (static_cast<size_t>(got) == expected_ && held_size_ < want);
    }
    return true;
}

/* The host's function does not say how much it read: the file is asked first. */
bool MessageBytes::hold_by_host()
{
    const int64_t size = clamp_to_file(fd_, 0, UINT64_MAX);
    if (size < 0) return false;
    const size_t take =
        static_cast<uint64_t>(size) < to_hold_ ? static_cast<size_t>(size) : to_hold_;
    held_ = read_to_memory(fd_, 0, take);
    if (held_ == nullptr) return false;
    held_size_ = take;
    whole_ = take == static_cast<size_t>(size);
    return true;
}

bool MessageBytes::hold()
{
    if (held_ != nullptr || to_hold_ == 0) return true;
    if (host_reads_files()) return hold_by_host();
    const size_t want = to_hold_ == expected_ ? size_t{to_hold_} + 1 : to_hold_;
    held_ = static_cast<char *>(host_allocate(want));
    if (held_ != nullptr && read_held(want)) return true;
    host_release(held_);
    held_ = nullptr;
    held_size_ = 0;
    return false;
}

bool MessageBytes::holds(uint64_t start, uint64_t length) const
{
    return whole_ || (start <= held_size_ && length <= held_size_ - start);
}

const char *MessageBytes::whole(size_t *size_out)
{
    if (!hold() || !whole_) return nullptr;
    *size_out = held_size_;
    return held_;
}

/* -- ranges -- */

const char *MessageBytes::range(uint64_t start, uint64_t length, size_t *size_out)
{
    if (!hold()) return nullptr;
    const bool held = held_ != nullptr && holds(start, length);
    const int64_t size =
        held ? clamp(held_size_, start, length) : clamp_to_file(fd_, start, length);
    if (size < 0) return nullptr;
    *size_out = static_cast<size_t>(size);
    if (held) return size > 0 ? held_ + start : held_;
    host_release(scratch_);
    scratch_ = read_to_memory(fd_, static_cast<off_t>(start), *size_out);
    return scratch_;
}

char *MessageBytes::text(uint64_t start, uint64_t length)
{
    size_t size = 0;
    const char *bytes = range(start, length, &size);
    if (bytes == nullptr) return nullptr;
    if (bytes == scratch_) {
        scratch_ = nullptr;
        return const_cast<char *>(bytes);
    }
    char *copy = static_cast<char *>(host_allocate(size + 1));
    if (copy == nullptr) return nullptr;
    memcpy(copy, bytes, size);
    copy[size] = '\0';
    return copy;
}
