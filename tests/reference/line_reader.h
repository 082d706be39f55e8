/* A slow twin of the line reader of store/ntio.h: one byte at a time, over contents in memory. */
#ifndef TESTS_REFERENCE_LINE_READER_H
#define TESTS_REFERENCE_LINE_READER_H

#include <stddef.h>

#include <optional>
#include <string>

namespace reference
{
class LineReader
{
  public:
    explicit LineReader(std::string contents) : contents_(std::move(contents)) {}

    /* The next piece for a destination of size bytes; none at the end. */
    std::optional<std::string> next(int size);

    /* How many bytes of the file have been read ahead, and the next byte's index in the block. */
    size_t offset() const { return offset_; }
    size_t position() const { return position_; }
    int state() const { return state_; }

  private:
    std::string take(std::string *line, size_t size);
    bool read_block();

    std::string contents_;
    size_t offset_ = 0;
    std::string block_; /* a text: ends at its first zero byte */
    size_t position_ = 0;
    int state_ = 0;
};
} // namespace reference

#endif
