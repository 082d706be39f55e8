/* Views of lines.  A line that lies whole in the read-ahead, that is all but about one in eight
   kilobytes, is found with one memchr() and not copied; Fgets() does the others. */
#include "store/ntio_view.h"

#include <string.h>

/* Bytes of the line end that the last call of Fgets() consumed.  A carriage return at the end of
   the former block was handed out as text, so only one in the present block counts. */
static uint32_t consumed_line_end(const FileRecord *record)
{
    const uint32_t position = record->position;
    return position >= 2 && record->buffer[position - 2] == '\r' ? 2 : 1;
}

static int view_joined(LineView *view_out, char *joined, FileRecord *record)
{
    if (Fgets(joined, VIEW_LINE_SIZE, record) == nullptr) return Ferror(record) == 1 ? -1 : 0;
    const uint32_t size = static_cast<uint32_t>(strlen(joined));
    const bool ended = size >= 2 && joined[size - 2] == '\r' && joined[size - 1] == '\n';
    view_out->text = joined;
    view_out->size = ended ? size - 2 : size;
    view_out->ended = ended;
    view_out->end_size = ended ? consumed_line_end(record) : 0;
    view_out->split_end = ended && size > 2 && joined[size - 3] == '\r' && record->position == 1;
    return 1;
}

bool view_buffered(LineView *view_out, FileRecord *record)
{
    const char *start = record->buffer + record->position;
    const bool usable = record->state == 0 && record->position < record->line_end;
    const void *found = usable ? memchr(start, '\n', record->line_end - record->position) : nullptr;
    if (found == nullptr) return false;

    const char *feed = static_cast<const char *>(found);
    const char *end = feed > start && feed[-1] == '\r' ? feed - 1 : feed;
    if (end - start + 3 > VIEW_LINE_SIZE) return false;

    view_out->text = start;
    view_out->size = static_cast<uint32_t>(end - start);
    view_out->end_size = static_cast<uint32_t>(feed + 1 - end);
    view_out->ended = true;
    view_out->split_end = false;
    record->position += static_cast<uint32_t>(feed + 1 - start);
    return true;
}

int Fview(LineView *view_out, char *joined, FileRecord *record)
{
    return view_buffered(view_out, record) ? 1 : view_joined(view_out, joined, record);
}

void copy_view(char *text_out, const LineView &view)
{
    memcpy(text_out, view.text, view.size);
    strcpy(text_out + view.size, view.ended ? "\r\n" : "");
}
