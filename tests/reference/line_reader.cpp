#include "tests/reference/line_reader.h"

namespace reference
{
std::string LineReader::take(std::string *line, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        *line += block_[position_++];
    return *line;
}

LineReader::Block LineReader::read_block()
{
    position_ = 0;
    block_.clear();
    size_t count = 0;
    bool cut = false;
    for (; count < 8176 && offset_ < contents_.size(); ++count, ++offset_) {
        if (offset_ >= unreadable_from_) return count > 0 ? Block::read : Block::error;
        if (contents_[offset_] == '\0') cut = true;
        if (!cut) block_ += contents_[offset_];
    }
    return count > 0 ? Block::read : Block::end;
}

void LineReader::flush()
{
    offset_ = offset_ + position_ - block_.size();
    position_ = 0;
    block_.clear();
}

std::optional<std::string> LineReader::next(int size)
{
    if (state_ == -1) {
        state_ = 0;
        return std::nullopt;
    }
    std::string line;
    size_t room = static_cast<size_t>(size);
    for (;;) {
        const size_t unread = block_.size() - position_;
        const char *text = block_.data() + position_;
        size_t feed = 0;
        while (feed < unread && text[feed] != '\n')
            ++feed;
        if (feed == unread) {
            if (room < unread + 1) return take(&line, room - 1);
            take(&line, unread);
            room -= unread;
            const Block block = read_block();
            if (block == Block::read) continue;
            if (block == Block::error) {
                state_ = 1;
                return std::nullopt;
            }
            state_ = line.empty() ? 0 : -1;
            if (line.empty()) return std::nullopt;
            return line;
        }
        size_t length = feed;
        size_t ending = 1;
        if (feed > 0 && text[feed - 1] == '\r') {
            length = feed - 1;
            ending = 2;
        }
        if (room < length + 3) return take(&line, room - 1);
        take(&line, length);
        position_ += ending;
        return line + "\r\n";
    }
}
} // namespace reference
