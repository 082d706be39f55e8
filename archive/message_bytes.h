/* What is read of a message file: the beginning of it once, for all who ask, and what lies behind
   that from the file each time.  Most messages are small, and asking the kernel costs more than
   whatever is done with the answer. */
#ifndef ARCHIVE_MESSAGE_BYTES_H
#define ARCHIVE_MESSAGE_BYTES_H

#include <stddef.h>
#include <stdint.h>

#include "mlist/archive.h"

class MessageBytes
{
  public:
    /* The descriptor stays the caller's.  Nothing is held. */
    explicit MessageBytes(int fd) : fd_(fd) {}

    /* A message of the index: held whole when it has at most so many bytes, else its header is when
       that has.  The file is read when bytes are first asked for. */
    MessageBytes(int fd, const IndexRecord &record, uint32_t most);
    ~MessageBytes();
    MessageBytes(const MessageBytes &) = delete;
    MessageBytes &operator=(const MessageBytes &) = delete;

    /* What the file has of a range, until the next call.  Null with errno. */
    [[nodiscard]] const char *range(uint64_t start, uint64_t length, size_t *size_out);

    /* The same as a text of host memory, the caller's; null with errno. */
    [[nodiscard]] char *text(uint64_t start, uint64_t length);

    /* The whole file when it is held, else null. */
    const char *whole(size_t *size_out);

    /* Bytes that the file has now from start on, at most length, for whoever sends them from there;
       0 when it cannot be asked. */
    uint64_t there(uint64_t start, uint64_t length) const;

    int fd() const { return fd_; }

  private:
    [[nodiscard]] bool hold();
    [[nodiscard]] bool hold_by_host();
    [[nodiscard]] bool read_held(size_t want);
    bool holds(uint64_t start, uint64_t length) const;

    int fd_;
    uint32_t expected_ = 0; /* size of the file by the index */
    uint32_t to_hold_ = 0;
    char *held_ = nullptr;
    size_t held_size_ = 0;
    bool whole_ = false;      /* held_ is all of the file */
    char *scratch_ = nullptr; /* the range asked for last that was not held */
};

#endif
