/* A slow twin of the line reader of store/ntio.h: one byte at a time, over contents in memory. */
#ifndef TESTS_REFERENCE_LINE_READER_H
#define TESTS_REFERENCE_LINE_READER_H

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>

namespace reference
{
class LineReader
{
  public:
    /* From a place on no byte of the file can be read. */
    explicit LineReader(std::string contents, size_t unreadable_from = SIZE_MAX)
        : contents_(std::move(contents)), unreadable_from_(unreadable_from)
    {
    }

    /* The next piece for a destination of size bytes; none at the end, and at an error, when the
       state is 1. */
    std::optional<std::string> next(int size);

    /* Forgets the block and goes back to the first byte that was not handed out, counting a text.
     */
    void flush();

    /* How many bytes of the file have been read ahead, and the next byte's index in the block. */
    size_t offset() const { return offset_; }
    size_t position() const { return position_; }
    int state() const { return state_; }

  private:
    std::string take(std::string *line, size_t size);
    enum class Block { read, end, error };
    Block read_block();

    std::string contents_;
    size_t unreadable_from_;
    size_t offset_ = 0;
    std::string block_; /* a text: ends at its first zero byte */
    size_t position_ = 0;
    int state_ = 0;
};
} // namespace reference

#endif
