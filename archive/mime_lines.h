/* The lines of a message that matter to its structure, found in one reading of the file: those that
   may be boundaries and those that may end a header.  A part is not bounded by the one around it,
   so without this every multipart would be searched to the end of the file again.

   A line is what one read of the parser yields: through the next line feed, or 2,046 bytes. */
#ifndef ARCHIVE_MIME_LINES_H
#define ARCHIVE_MIME_LINES_H

#include <stdint.h>

#include "archive/growing.h"
#include "archive/message_bytes.h"

#define MIME_LINE_SIZE 2046

/* A place between two lines, and the line feeds between where reading began and it. */
struct LinePosition {
    uint32_t offset;
    uint32_t lines;
};

/* A part between two boundary lines. */
struct FoundPart {
    LinePosition start, body, end; /* body == start: no line ends its header */
};

class MimeLines
{
  public:
    /* Reads the message from offset from on.  Lines are counted up to offset end too.  False
       without memory or when the file cannot be read: errno. */
    [[nodiscard]] bool load(MessageBytes *bytes, uint32_t from, uint64_t end);

    /* The first part at or behind offset from. */
    bool find_part(uint32_t from, const char *boundary, size_t length, FoundPart *part_out);

    /* Behind the first line that is just CR LF and ends at or before limit, at or behind from. */
    bool find_blank(uint32_t from, uint32_t limit, LinePosition *behind_out);

    /* Lines that end at or before the end that load() was given; complete() tells whether all of
       the file was read. */
    uint32_t lines_at_end() const { return lines_at_end_; }
    bool complete() const { return complete_; }

    /* Takes so much of the work that is left; false when it is used up.  Only a message made to
       keep us busy uses it up: parts that overlap again and again. */
    bool spend(uint64_t steps);

  private:
    /* A line that begins with "--" or CR.  Lines of just CR LF in a row are one entry. */
    struct Mark {
        uint32_t offset;
        uint32_t lines_before;
        uint32_t text; /* boundary: where its bytes are in text_; CR LF lines: how many, else 0 */
        uint16_t length;
        uint16_t feed; /* 1 when it ends with a line feed */
    };
    using Marks = GrowingList<Mark>;

    [[nodiscard]] bool take_line(const char *line, const Mark &mark);
    [[nodiscard]] bool add_empty(const Mark &mark);
    static size_t first_at(const Marks &marks, uint32_t offset);
    static LinePosition behind(const Mark &mark);
    const Mark *next_boundary(uint32_t from, const char *boundary, size_t length);
    bool end_of_header(uint32_t from, uint32_t limit, bool exact, LinePosition *behind_out);
    bool is_boundary(const Mark &mark, const char *boundary, size_t length) const;

    Marks dashes_, breaks_;
    GrowingText text_; /* of the lines that begin with "--" */
    uint32_t lines_at_end_ = 0;
    bool complete_ = false;
    uint64_t work_left_ = 0;
};

#endif
