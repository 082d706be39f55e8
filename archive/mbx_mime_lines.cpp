#include <errno.h>
#include <string.h>

#include "archive/mime_lines.h"
#include "module/host_mem.h"
#include "module/os.h"

/* More lines of either kind than anything but an attack has; the file ends there for us. */
#define MAX_MARKS 0x400000u

/* Work for each byte of the file, and at least. */
#define WORK_PER_BYTE 16u
#define WORK_AT_LEAST 0x100000u

#define BLOCK_SIZE 65536

/* -- reading -- */

namespace
{
/* Lines of a file, each as one piece of memory. */
class LineSource
{
  public:
    LineSource() = default;
    ~LineSource() { host_release(own_); }
    LineSource(const LineSource &) = delete;
    LineSource &operator=(const LineSource &) = delete;

    /* The message's lines from offset from on.  False without memory. */
    [[nodiscard]] bool start(MessageBytes *bytes, uint32_t from);

    /* The next line's length and bytes; 0 at the end, -1 on failure. */
    ssize_t next(const char **line_out);

    /* Of the line that next() will give. */
    uint64_t offset() const { return offset_ + begin_; }

  private:
    bool refill();

    int fd_ = -1;
    char *own_ = nullptr;         /* a block to read into, unless the message is held */
    const char *block_ = nullptr; /* where the lines are */
    uint64_t offset_ = 0;         /* of the block in the file */
    size_t begin_ = 0, filled_ = 0;
    bool at_end_ = false;
};

bool LineSource::start(MessageBytes *bytes, uint32_t from)
{
    block_ = bytes->whole(&filled_);
    if (block_ != nullptr) {
        begin_ = from < filled_ ? from : filled_;
        at_end_ = true;
        return true;
    }
    fd_ = bytes->fd();
    offset_ = from;
    block_ = own_ = static_cast<char *>(host_allocate(BLOCK_SIZE));
    return own_ != nullptr;
}

bool LineSource::refill()
{
    memmove(own_, own_ + begin_, filled_ - begin_);
    offset_ += begin_;
    filled_ -= begin_;
    begin_ = 0;
    const ssize_t got = pread_some(fd_, own_ + filled_, BLOCK_SIZE - filled_,
                                   static_cast<off_t>(offset_ + filled_));
    if (got < 0) return false;
    filled_ += static_cast<size_t>(got);
    at_end_ = got == 0;
    return true;
}

ssize_t LineSource::next(const char **line_out)
{
    for (;;) {
        const char *line = block_ + begin_;
        const size_t have = filled_ - begin_;
        const size_t look = have < MIME_LINE_SIZE ? have : MIME_LINE_SIZE;
        const char *feed = static_cast<const char *>(memchr(line, '\n', look));
        if (feed == nullptr && look < MIME_LINE_SIZE && !at_end_) {
            if (!refill()) return -1;
            continue;
        }
        const size_t length = feed != nullptr ? static_cast<size_t>(feed - line) + 1 : look;
        begin_ += length;
        *line_out = line;
        return static_cast<ssize_t>(length);
    }
}
} // namespace

static bool is_empty_line(const char *line, size_t length)
{
    return length == 2 && line[0] == '\r' && line[1] == '\n';
}

bool MimeLines::add_empty(const Mark &mark)
{
    if (breaks_.count() > 0) {
        Mark &last = breaks_.last();
        if (last.text > 0 && last.offset + 2 * last.text == mark.offset) {
            ++last.text;
            return true;
        }
    }
    return breaks_.add(mark);
}

bool MimeLines::take_line(const char *line, const Mark &seen)
{
    Mark mark = seen;
    if (line[0] == '\r') {
        if (!is_empty_line(line, mark.length)) return breaks_.add(mark);
        mark.text = 1;
        return add_empty(mark);
    }
    if (mark.length < 2 || line[0] != '-' || line[1] != '-') return true;
    mark.text = static_cast<uint32_t>(text_.count());
    return text_.append(line, mark.length) && dashes_.add(mark);
}

bool MimeLines::load(MessageBytes *bytes, uint32_t from, uint64_t end)
{
    LineSource source;
    if (!source.start(bytes, from)) return false;
    uint32_t lines = 0;
    uint64_t offset = from;
    bool feed = true;
    while (dashes_.count() < MAX_MARKS && breaks_.count() < MAX_MARKS) {
        const char *line = nullptr;
        const ssize_t length = source.next(&line);
        if (length < 0) return false;
        complete_ = length == 0;
        if (complete_ || source.offset() > UINT32_MAX) break;
        feed = line[length - 1] == '\n';
        if (!take_line(line, {static_cast<uint32_t>(offset), lines, 0,
                              static_cast<uint16_t>(length), feed}))
            return false;
        if (feed) ++lines;
        offset = source.offset();
        if (feed && offset <= end) lines_at_end_ = lines;
    }
    if (!feed && offset <= end) lines_at_end_ = lines + 1; /* the file's last line needs none */
    work_left_ = WORK_AT_LEAST + WORK_PER_BYTE * (offset - from);
    return true;
}

/* -- searching -- */

bool MimeLines::spend(uint64_t steps)
{
    const bool enough = steps < work_left_;
    work_left_ = enough ? work_left_ - steps : 0;
    return enough;
}

/* The first entry that begins at offset or behind. */
size_t MimeLines::first_at(const Marks &marks, uint32_t offset)
{
    size_t low = 0, high = marks.count();
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (marks.items()[middle].offset < offset)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

LinePosition MimeLines::behind(const Mark &mark)
{
    return {mark.offset + mark.length, mark.lines_before + mark.feed};
}

bool MimeLines::is_boundary(const Mark &mark, const char *boundary, size_t length) const
{
    return mark.length >= length + 2 &&
           memcmp(text_.items() + mark.text + 2, boundary, length) == 0;
}

const MimeLines::Mark *MimeLines::next_boundary(uint32_t from, const char *boundary, size_t length)
{
    for (size_t i = first_at(dashes_, from); i < dashes_.count(); ++i) {
        if (!spend(1 + length / 16)) return nullptr;
        if (is_boundary(dashes_.items()[i], boundary, length)) return &dashes_.items()[i];
    }
    return nullptr;
}

bool MimeLines::end_of_header(uint32_t from, uint32_t limit, bool exact, LinePosition *behind_out)
{
    size_t i = first_at(breaks_, from);
    if (i > 0) {
        /* from may stand within a row of empty lines */
        const Mark &row = breaks_.items()[i - 1];
        const uint32_t skipped = (from - row.offset) / 2;
        if (skipped < row.text && row.offset + 2 * skipped == from) {
            *behind_out = {from + 2, row.lines_before + skipped + 1};
            return behind_out->offset <= limit;
        }
    }
    for (; i < breaks_.count() && spend(1); ++i) {
        if (exact && breaks_.items()[i].text == 0) continue;
        *behind_out = behind(breaks_.items()[i]);
        return behind_out->offset <= limit;
    }
    return false;
}

bool MimeLines::find_part(uint32_t from, const char *boundary, size_t length, FoundPart *part_out)
{
    const Mark *first = next_boundary(from, boundary, length);
    if (first == nullptr) return false;
    part_out->start = behind(*first);
    const Mark *second = next_boundary(part_out->start.offset, boundary, length);
    if (second == nullptr) return false;
    part_out->end = {second->offset, second->lines_before};
    /* KEPT: any line that begins with CR ends the header.
       Test: PartSearch.TakesAnyLineThatBeginsWithCarriageReturnForTheEndOfTheHeader */
    if (!end_of_header(part_out->start.offset, second->offset, false, &part_out->body))
        part_out->body = part_out->start;
    return true;
}

bool MimeLines::find_blank(uint32_t from, uint32_t limit, LinePosition *behind_out)
{
    return end_of_header(from, limit, true, behind_out);
}
