#include "host/libldapuse/text.h"

#include <algorithm>

static bool is_high(unsigned char byte)
{
    return byte >= 0xa1 && byte <= 0xfe;
}

/* Bytes of the character at the front; a broken one counts as one byte. */
static size_t character_size(std::string_view text)
{
    const auto byte = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    if (byte(0) == 0x8f && is_high(byte(1)) && is_high(byte(2))) return 3;
    if ((byte(0) == 0x8e || is_high(byte(0))) && is_high(byte(1))) return 2;
    return 1;
}

size_t whole_characters(std::string_view text, size_t limit)
{
    if (text.size() <= limit) return text.size();
    size_t length = 0;
    for (;;) {
        const size_t next = length + character_size(text.substr(length));
        if (next > limit) return length;
        length = next;
    }
}

static std::string without_nul(std::string_view text)
{
    std::string clean(text);
    std::erase(clean, '\0');
    return clean;
}

static std::string_view strip_line_end(std::string_view line)
{
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

std::string mail_text(std::string_view text)
{
    std::string out;
    std::string_view rest = text;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
        if (!out.empty() || rest.data() != text.data()) out += "\r\n";
        out += without_nul(strip_line_end(rest.substr(0, end)));
        rest.remove_prefix(end);
    }
    return out;
}

std::string first_line(std::string_view text, size_t limit, size_t &used_out)
{
    const size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string_view line = strip_line_end(text.substr(0, end));
    const size_t length = whole_characters(line, limit);
    used_out = length < line.size() ? length : end;
    return without_nul(line.substr(0, length));
}
