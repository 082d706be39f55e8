#include "tests/reference/mime_literal.h"

#include <strings.h>

#include <algorithm>

namespace literal
{
namespace
{
constexpr size_t line_size = 2046;

/* What one read from position yields. */
std::string read_line(const std::string &message, size_t position)
{
    if (position >= message.size()) return "";
    const size_t feed = message.find('\n', position);
    const size_t end = feed == std::string::npos ? message.size() : feed + 1;
    return message.substr(position, std::min(end - position, line_size));
}

bool begins(const std::string &text, const std::string &prefix)
{
    return text.size() >= prefix.size() &&
           strncasecmp(text.c_str(), prefix.c_str(), prefix.size()) == 0;
}

std::string unfolded(const std::string &header)
{
    std::string out;
    for (size_t i = 0; i < header.size(); ++i) {
        const size_t blank = i + 2;
        if (header.compare(i, 2, "\r\n") == 0 && blank < header.size() &&
            (header[blank] == ' ' || header[blank] == '\t')) {
            i = std::min(header.find_first_not_of(" \t", blank), header.size()) - 1;
            out += ' ';
        } else {
            out += header[i];
        }
    }
    return out;
}

/* The last field of the name. */
bool find_type(const std::string &raw, std::string *type_out)
{
    const std::string header = unfolded(raw.substr(0, raw.find('\0')));
    bool found = false;
    for (size_t at = 0; at < header.size();) {
        const size_t cr = header.find('\r', at);
        if (cr == std::string::npos) break;
        const std::string field = header.substr(at, cr - at);
        if (begins(field, "Content-Type:")) {
            *type_out = field.substr(13);
            if (begins(*type_out, " ")) type_out->erase(0, 1);
            found = true;
        }
        at = cr + 1;
        if (at < header.size() && header[at] == '\n') ++at;
    }
    return found;
}

bool find_boundary(const std::string &type, std::string *boundary_out)
{
    for (size_t i = 10; i < type.size(); ++i) {
        if (!begins(type.substr(i), "boundary=")) continue;
        std::string value = type.substr(i + 9);
        if (begins(value, "\"")) value = value.substr(1, value.find('"', 1) - 1);
        *boundary_out = value;
        return true;
    }
    return false;
}

size_t count_lines(const std::string &message, size_t start, size_t length)
{
    size_t lines = 0;
    for (size_t at = start; at < message.size();) {
        const size_t feed = message.find('\n', at);
        const size_t end = feed == std::string::npos ? message.size() : feed + 1;
        if (end > start + length) break;
        ++lines;
        at = end;
    }
    return lines;
}

/* The next part between two boundary lines at or behind position. */
bool next_part(const std::string &message, size_t position, const std::string &boundary,
               Part *part_out)
{
    const std::string mark = "--" + boundary;
    for (;;) {
        const std::string line = read_line(message, position);
        if (line.empty()) return false;
        position += line.size();
        if (line.compare(0, mark.size(), mark) == 0) break;
    }
    size_t total = 0, header = 0;
    for (;;) {
        const std::string line = read_line(message, position + total);
        if (line.empty()) return false;
        if (line.compare(0, mark.size(), mark) == 0) break;
        total += line.size();
        if (line[0] == '\r' && header == 0) header = total;
    }
    part_out->start = position;
    part_out->header_length = header;
    part_out->body_length = total - header;
    return true;
}

std::unique_ptr<Part> parse_enclosed(const std::string &message, size_t start, size_t length)
{
    for (size_t total = 0; total < length;) {
        const std::string line = read_line(message, start + total);
        if (line.empty()) break;
        total += line.size();
        if (line == "\r\n" && total <= length) return parse(message, start, total, length - total);
    }
    return nullptr;
}
} // namespace

std::unique_ptr<Part> parse(const std::string &message, size_t start, size_t header_length,
                            size_t body_length)
{
    auto part = std::make_unique<Part>();
    part->start = start;
    part->header_length = header_length;
    part->body_length = body_length;
    const size_t body = start + header_length;
    part->lines = count_lines(message, body, body_length);
    part->has_type = find_type(message.substr(start, header_length), &part->type);
    if (part->has_type && begins(part->type, "multipart/")) {
        std::string boundary;
        if (!find_boundary(part->type, &boundary)) return nullptr;
        Part found;
        for (size_t at = body; next_part(message, at, boundary, &found);) {
            part->children.push_back(
                parse(message, found.start, found.header_length, found.body_length));
            at = found.start + found.header_length + found.body_length;
        }
    } else if (part->has_type && begins(part->type, "message/rfc822")) {
        part->enclosed = parse_enclosed(message, body, body_length);
    }
    return part;
}
} // namespace literal
