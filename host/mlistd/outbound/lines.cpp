#include "host/mlistd/outbound/lines.h"

#include <algorithm>

/* Takes a CR off the end of a text; tells whether there was one. */
static bool strip_cr(std::string_view &text)
{
    if (text.empty() || text.back() != '\r') return false;
    text.remove_suffix(1);
    return true;
}

void WireLines::append_text(std::string_view text, std::string &out)
{
    if (text.empty()) return;
    if (at_start_ && text[0] == '.') out += '.';
    at_start_ = false;
    const size_t before = out.size();
    out += text;
    if (text.find('\r') != text.npos)
        std::replace(out.begin() + static_cast<std::ptrdiff_t>(before), out.end(), '\r', ' ');
}

void WireLines::feed(std::string_view piece, std::string &out)
{
    if (held_cr_ && !piece.empty()) {
        held_cr_ = false;
        if (piece[0] != '\n') append_text(" ", out);
    }
    while (!piece.empty()) {
        const size_t end = piece.find('\n');
        std::string_view line = piece.substr(0, end);
        const bool cr = strip_cr(line);
        append_text(line, out);
        if (end == piece.npos) {
            held_cr_ = cr;
            return;
        }
        out += "\r\n";
        at_start_ = true;
        piece.remove_prefix(end + 1);
    }
}

void WireLines::finish(std::string &out)
{
    if (!at_start_ || held_cr_) out += "\r\n";
    at_start_ = true;
    held_cr_ = false;
}

void UnixLines::feed(std::string_view piece, std::string &out)
{
    if (held_cr_ && !piece.empty() && piece[0] != '\n') out += '\r';
    if (!piece.empty()) held_cr_ = false;
    while (!piece.empty()) {
        const size_t end = piece.find('\n');
        std::string_view line = piece.substr(0, end);
        const bool cr = strip_cr(line);
        out += line;
        if (end == piece.npos) {
            held_cr_ = cr;
            at_start_ = false;
            return;
        }
        out += '\n';
        at_start_ = true;
        piece.remove_prefix(end + 1);
    }
}

void UnixLines::finish(std::string &out)
{
    if (!at_start_ || held_cr_) out += '\n';
    at_start_ = true;
    held_cr_ = false;
}
