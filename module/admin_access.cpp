/* Administration of "grant" and "subscribe": one entry a line (mlist/admin.h). */
#include <errno.h>
#include <string.h>

#include "mlist/admin.h"
#include "module/admin_session.h"
#include "module/ascii.h"
#include "store/file.h"
#include "store/rewrite.h"

static const RewriteTexts access_texts = {
    .recover = {1, 440, "mlname=%s access list recover error %m [%s]"},
    .open_new = {1, 441, "mlname=%s access list new file error %m [%s]"},
    .open_source = {1, 442, "mlname=%s access list open error %m [%s]"},
    .write = {1, 443, "mlname=%s access list write error %m [%s]"},
    .read = {1, 444, "mlname=%s access list read error %m [%s]"},
    .close = {1, 445, "mlname=%s access list close error %m [%s]"},
    .renew = {1, 446, "mlname=%s access list renew error %m [%s]"},
};

/* -- entries -- */

static bool is_blank_or_line_end(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/* An entry as the look-ups see it: the line without the blanks around it; "" for an empty line. */
static void read_entry(const LineView &line, char *entry_out)
{
    size_t begin = 0, end = line.size;
    while (begin < end && is_blank(static_cast<unsigned char>(line.text[begin])))
        ++begin;
    while (end > begin && is_blank_or_line_end(line.text[end - 1]))
        --end;
    memcpy(entry_out, line.text + begin, end - begin);
    entry_out[end - begin] = '\0';
}

/* Patterns depend on case where they are looked up, so "*.JP" is another one than "*.jp". */
static bool same_entry(const char *left, const char *right)
{
    if (left[0] == '*' || right[0] == '*') return strcmp(left, right) == 0;
    return same_text_nocase(left, right);
}

/* Which of the two files; a name that is neither is the caller's mistake. */
static const char *access_file(const char *name)
{
    if (strcmp(name, "grant") == 0) return "grant";
    if (strcmp(name, "subscribe") == 0) return "subscribe";
    return nullptr;
}

/* An asterisk alone admits nobody, though it looks as if it admitted everybody. */
static bool can_be_entry(const char *file, const char *text)
{
    if (!is_one_word(text)) return false;
    return strcmp(file, "grant") == 0 ? text[0] != '*' : strcmp(text, "*") != 0;
}

/* -- operations -- */

static int open_rewrite(ControlRewrite *rewrite, const char *file)
{
    if (rewrite->recover(file) < 0 || rewrite->open_source(file) < 0) return -1;
    return rewrite->open_new();
}

int mlist_access_add(ListSession *session, const char *name, const char *text)
{
    const char *file = access_file(name);
    if (file == nullptr || !can_be_entry(file, text)) return refuse_word();

    ControlRewrite rewrite(&session->job, access_texts);
    if (open_rewrite(&rewrite, file) < 0) return -1;
    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0) {
        char entry[VIEW_LINE_SIZE];
        read_entry(line, entry);
        if (same_entry(entry, text)) return rewrite.discard();
        if (rewrite.keep(line) < 0) return -1;
    }
    if (got < 0) return -1;
    if (rewrite.unended && rewrite.put("\r\n") < 0) return -1;
    if (rewrite.put(text) < 0 || rewrite.put("\r\n") < 0) return -1;
    if (rewrite.drain(access_texts.write) < 0) return -1;
    return rewrite.commit() < 0 ? -1 : 1;
}

/* Empty lines go too: a file that holds nothing else is no empty file, and would shut everybody
   out. */
int mlist_access_remove(ListSession *session, const char *name, const char *text)
{
    const char *file = access_file(name);
    if (file == nullptr || !is_one_word(text)) return refuse_word();

    ControlRewrite rewrite(&session->job, access_texts);
    if (open_rewrite(&rewrite, file) < 0) return -1;
    bool found = false, at_start = true;
    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0) {
        char entry[VIEW_LINE_SIZE];
        read_entry(line, entry);
        const bool match = at_start && same_entry(entry, text);
        const bool goes = match || (at_start && entry[0] == '\0');
        found |= match;
        at_start = ends_line(line); /* else the next piece belongs to the same line */
        if (!goes && rewrite.keep(line) < 0) return -1;
    }
    if (got < 0) return -1;
    if (!found) return rewrite.discard();
    return rewrite.commit() < 0 ? -1 : 1;
}

int mlist_access_each(ListSession *session, const char *name, AccessVisitor visit, void *argument)
{
    const char *file = access_file(name);
    if (file == nullptr) return refuse_word();

    ControlRewrite reading(&session->job,
                           access_texts); /* only its first half: nothing is written */
    if (reading.recover(file) < 0 || reading.open_source(file) < 0) return -1;
    char joined[VIEW_LINE_SIZE], entry[VIEW_LINE_SIZE];
    LineView line;
    int got, result = 0;
    while (result == 0 && (got = Fview(&line, joined, reading.source)) != 0) {
        if (got < 0)
            return log_failure(access_texts.read, session->job.list_name, reading.source_path);
        read_entry(line, entry);
        if (entry[0] != '\0') result = visit(entry, argument);
    }
    return result;
}
