/* Line reading without a copy: the lines of Fgets() with a destination of VIEW_LINE_SIZE bytes, as
   views into the record's read-ahead. */
#ifndef STORE_NTIO_VIEW_H
#define STORE_NTIO_VIEW_H

#include <stddef.h>
#include <stdint.h>

#include "store/ntio.h"

#define VIEW_LINE_SIZE 4096

/* One piece as Fgets() would hand it out: size bytes of text, then CR LF when ended.  The text is
   not terminated; it is valid until the next call on the same record. */
struct LineView {
    const char *text;
    uint32_t size;
    uint32_t end_size; /* bytes that the line end has in the file: 0, 1 or 2 */
    bool ended;
    bool split_end; /* the text's last byte is the CR of a CR LF that two reads brought in */
};

/* The next line when it lies whole in the read-ahead, which is then as it was.  Whether it does. */
[[nodiscard]] bool view_buffered(LineView *view_out, FileRecord *record);

/* The next piece.  joined (VIEW_LINE_SIZE bytes) takes a piece that does not lie whole in the
   read-ahead.  1, 0 at the end, -1 on a read error. */
[[nodiscard]] int Fview(LineView *view_out, char *joined, FileRecord *record);

/* Whether the last byte handed out with the view is a line feed. */
inline bool ends_line(const LineView &view)
{
    return view.ended || (view.size > 0 && view.text[view.size - 1] == '\n');
}

/* Copies what Fgets() would have handed out, with its line end, into VIEW_LINE_SIZE bytes. */
void copy_view(char *text_out, const LineView &view);

#endif
