/* Parsing a message into its tree of parts. */
#include <string.h>

#include "archive/growing.h"
#include "archive/mime.h"
#include "archive/mime_lines.h"
#include "module/host_mem.h"
#include "module/unix_sv.h"

/* -- nodes -- */

void list_freemime(PartNode *part)
{
    if (part == nullptr) return;
    for (uint32_t i = 0; i < part->child_count; ++i)
        list_freemime(part->children[i]);
    list_freemime(part->enclosed);
    host_release(part->children);
    char *const texts[] = {part->content_type, part->transfer_encoding, part->content_id,
                           part->description,  part->disposition,       part->line_count_text};
    for (char *text : texts)
        host_release(text);
    host_release(part);
}

static void log_no_memory()
{
    trace_sys(&g_logh, 3, 628, "getmime: ThrMemAlloc fail");
}

namespace
{
/* Holds a tree for a scope. */
struct PartHolder {
    PartNode *part;
    ~PartHolder() { list_freemime(part); }
    PartNode *take()
    {
        PartNode *taken = part;
        part = nullptr;
        return taken;
    }
};

struct Boundary {
    const char *text;
    size_t length;
};

/* One message on its way into a tree. */
class MimeParser
{
  public:
    explicit MimeParser(MessageBytes *bytes) : bytes_(bytes) {}

    PartNode *parse_root(uint32_t start, uint32_t header_length, uint32_t body_length);
    PartNode *parse_message(uint32_t start, uint32_t length);

  private:
    PartNode *parse_header(uint32_t start, uint32_t header_length, uint32_t body_length);
    PartNode *parse_found(const FoundPart &found, int depth);
    int parse_inside(PartNode *part, const FoundPart &where, int depth);
    int parse_children(PartNode *part, const Boundary &boundary, const FoundPart &where, int depth);
    PartNode *parse_enclosed(const FoundPart &where, int depth);
    bool may_take(const FoundPart &found);

    MessageBytes *bytes_;
    MimeLines lines_;
    uint32_t parts_ = 0;
};
} // namespace

static PartNode *new_part(uint32_t start, uint32_t header_length, uint32_t body_length)
{
    PartNode *part = static_cast<PartNode *>(host_allocate(sizeof(PartNode)));
    if (part == nullptr) {
        log_no_memory();
        return nullptr;
    }
    memset(part, 0, sizeof(*part));
    part->start = start;
    part->header_length = header_length;
    part->body_length = body_length;
    return part;
}

/* -- header of a part -- */

struct PartField {
    const char *prefix;
    char *PartNode::*value;
};

static constexpr PartField part_fields[] = {
    {"Content-Type:", &PartNode::content_type},
    {"Content-Transfer-Encoding:", &PartNode::transfer_encoding},
    {"Content-ID:", &PartNode::content_id},
    {"Content-Description:", &PartNode::description},
    {"Content-Disposition:", &PartNode::disposition},
};

/* 0, or -1 without memory. */
static int keep_field(PartNode *part, char *field)
{
    for (const PartField &known : part_fields) {
        const char *value = field_value(field, known.prefix);
        if (value == nullptr) continue;
        char *copy = host_copy_text(*value == ' ' ? value + 1 : value);
        if (copy == nullptr) return -1;
        host_release(part->*known.value);
        part->*known.value = copy;
    }
    return 0;
}

/* 0, or -1 (logged). */
static int read_fields(MessageBytes *bytes, PartNode *part)
{
    HostPtr<char> header(bytes->text(part->start, part->header_length));
    if (header.p == nullptr) {
        trace_sys(&g_logh, 3, 629, "getmime: disk2memory fail");
        return -1;
    }
    FieldCursor cursor;
    start_fields(&cursor, header.p);
    while (char *field = next_field(&cursor))
        if (keep_field(part, field) < 0) {
            log_no_memory();
            return -1;
        }
    return 0;
}

/* Finds the boundary in a multipart's content type.
   KEPT: without quotes it is all the rest of the value, other parameters too.
   Test: MimeParse.TakesTheRestOfTheValueForABoundaryWithoutQuotes */
static bool find_boundary(const char *content_type, Boundary *boundary_out)
{
    const char *text = content_type;
    while (*text != '\0' && !begins_nocase(text, "boundary="))
        ++text;
    if (*text == '\0') return false;
    text += strlen("boundary=");
    if (*text != '"') {
        *boundary_out = {text, strlen(text)};
        return true;
    }
    ++text;
    *boundary_out = {text, strcspn(text, "\"")};
    return true;
}

/* A part of which only the header has been looked at. */
PartNode *MimeParser::parse_header(uint32_t start, uint32_t header_length, uint32_t body_length)
{
    PartHolder holder{new_part(start, header_length, body_length)};
    if (holder.part == nullptr || read_fields(bytes_, holder.part) < 0) return nullptr;
    return holder.take();
}

/* -- what is inside -- */

static bool is_multipart(const PartNode *part)
{
    return part->content_type != nullptr && begins_nocase(part->content_type, "multipart/");
}

static bool is_message(const PartNode *part)
{
    return part->content_type != nullptr && begins_nocase(part->content_type, "message/rfc822");
}

bool MimeParser::may_take(const FoundPart &found)
{
    return parts_ < MIME_MAX_PARTS && lines_.spend(found.body.offset - found.start.offset);
}

PartNode *MimeParser::parse_found(const FoundPart &found, int depth)
{
    ++parts_;
    PartHolder holder{parse_header(found.start.offset, found.body.offset - found.start.offset,
                                   found.end.offset - found.body.offset)};
    if (holder.part == nullptr) return nullptr;
    holder.part->lines_known = lines_.complete();
    holder.part->lines = found.end.lines - found.body.lines;
    if (parse_inside(holder.part, found, depth) < 0) return nullptr;
    return holder.take();
}

/* 0, or -1 (logged). */
int MimeParser::parse_children(PartNode *part, const Boundary &boundary, const FoundPart &where,
                               int depth)
{
    GrowingList<PartNode *> children;
    FoundPart found;
    bool stored = true;
    for (uint32_t at = where.body.offset;
         stored && lines_.find_part(at, boundary.text, boundary.length, &found) && may_take(found);
         at = found.end.offset) {
        PartHolder child{parse_found(found, depth + 1)};
        stored = children.add(child.part);
        if (stored) (void)child.take();
    }
    part->child_count = static_cast<uint32_t>(children.count());
    part->children = children.take();
    if (!stored) log_no_memory();
    return stored ? 0 : -1;
}

/* The message that fills a body; null when its header does not end there. */
PartNode *MimeParser::parse_enclosed(const FoundPart &where, int depth)
{
    FoundPart message = {where.body, {}, where.end};
    if (!lines_.find_blank(message.start.offset, message.end.offset, &message.body)) return nullptr;
    return may_take(message) ? parse_found(message, depth + 1) : nullptr;
}

/* 0, or -1 (logged) when the part is as good as not there. */
int MimeParser::parse_inside(PartNode *part, const FoundPart &where, int depth)
{
    Boundary boundary;
    if (is_multipart(part)) {
        if (!find_boundary(part->content_type + strlen("multipart/"), &boundary)) {
            trace_sys(&g_logh, 3, 630, "getmime: no boundary string on multipart mail");
            return -1;
        }
        return depth < MIME_MAX_DEPTH ? parse_children(part, boundary, where, depth) : 0;
    }
    if (is_message(part) && depth < MIME_MAX_DEPTH) part->enclosed = parse_enclosed(where, depth);
    return 0;
}

/* -- entries -- */

static uint32_t at_most_32_bits(uint64_t value)
{
    return value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

PartNode *MimeParser::parse_root(uint32_t start, uint32_t header_length, uint32_t body_length)
{
    PartHolder holder{parse_header(start, header_length, body_length)};
    if (holder.part == nullptr) return nullptr;
    /* All that a plain message needs is its header. */
    if (!is_multipart(holder.part) && !is_message(holder.part)) return holder.take();
    const uint64_t body = static_cast<uint64_t>(start) + header_length;
    FoundPart where = {
        {start, 0}, {at_most_32_bits(body), 0}, {at_most_32_bits(body + body_length), 0}};
    if (!lines_.load(bytes_, where.body.offset, where.end.offset)) {
        log_no_memory();
        return nullptr;
    }
    where.end.lines = lines_.lines_at_end();
    holder.part->lines_known = lines_.complete();
    holder.part->lines = where.end.lines;
    if (parse_inside(holder.part, where, 0) < 0) return nullptr;
    return holder.take();
}

PartNode *MimeParser::parse_message(uint32_t start, uint32_t length)
{
    FoundPart where = {{start, 0}, {start, 0}, {}};
    where.end.offset = at_most_32_bits(static_cast<uint64_t>(start) + length);
    if (!lines_.load(bytes_, start, where.end.offset)) {
        log_no_memory();
        return nullptr;
    }
    where.end.lines = lines_.lines_at_end();
    return parse_enclosed(where, -1); /* the message itself is at depth 0 */
}

PartNode *getmime(MessageBytes *bytes, uint32_t start, uint32_t header_length, uint32_t body_length)
{
    return MimeParser(bytes).parse_root(start, header_length, body_length);
}

PartNode *list_getmime(int fd, uint32_t start, uint32_t header_length, uint32_t body_length)
{
    MessageBytes bytes(fd);
    return getmime(&bytes, start, header_length, body_length);
}

PartNode *list_getrfc822(int fd, uint32_t start, uint32_t length)
{
    MessageBytes bytes(fd);
    return MimeParser(&bytes).parse_message(start, length);
}

uint32_t list_get1mime(int fd, uint32_t position, const char *boundary, uint32_t *header_length_out,
                       uint32_t *body_length_out)
{
    MessageBytes bytes(fd);
    MimeLines lines;
    FoundPart found;
    *header_length_out = *body_length_out = 0;
    if (!lines.load(&bytes, position, position)) return 0;
    if (!lines.find_part(position, boundary, strlen(boundary), &found)) return 0;
    *header_length_out = found.body.offset - found.start.offset;
    *body_length_out = found.end.offset - found.body.offset;
    return found.start.offset;
}
