#include "tests/reference/base64.h"

namespace reference
{

/* -- base64: everything goes through a text of noughts and ones -- */

static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                    "abcdefghijklmnopqrstuvwxyz"
                                    "0123456789"
                                    "+/";

static std::string bits_of(unsigned value, int count)
{
    std::string bits;
    for (int i = count - 1; i >= 0; --i)
        bits += (value >> i & 1) != 0 ? '1' : '0';
    return bits;
}

static unsigned value_of(const std::string &bits)
{
    unsigned value = 0;
    for (const char bit : bits)
        value = value * 2 + (bit == '1' ? 1 : 0);
    return value;
}

std::string base64_of(const std::string &bytes)
{
    std::string bits, text;
    for (const char byte : bytes)
        bits += bits_of(static_cast<unsigned char>(byte), 8);
    while (bits.size() % 6 != 0)
        bits += "00";
    for (size_t i = 0; i < bits.size(); i += 6)
        text += alphabet[value_of(bits.substr(i, 6))];
    while (text.size() % 4 != 0)
        text += '=';
    return text;
}

Coded base64_encode(const std::string &text, int size)
{
    int count = 4;
    if (count > size - 1) return {-1, "", {120}};
    for (size_t group = 0; group < text.size() / 3; ++group) {
        count += 4;
        if (count > size - 1) return {-1, "", {120}};
    }
    return {0, base64_of(text), {}};
}

std::string base64_encode_stream(const std::string &bytes, int line_length)
{
    std::string text;
    int count = 0;
    for (size_t at = 0; at < bytes.size(); at += 3) {
        text += base64_of(bytes.substr(at, 3));
        if (bytes.size() - at < 3) break;
        count += 4;
        if (count >= line_length) {
            text += "\r\n";
            count = 0;
        }
    }
    if (count > 0) text += "\r\n";
    return text;
}

/* Removes doubled entering escapes and closes what is open at the end. */
static std::string tidied(const std::string &decoded)
{
    const std::string text = decoded.substr(0, decoded.find('\0'));
    std::string result;
    int mode = 0;
    for (size_t at = 0; at < text.size();) {
        const std::string three = text.substr(at, 3);
        const int entering = three == "\x1b$B" ? 1 : (three == "\x1b$@" ? 2 : 0);
        if (three == "\x1b(B" || three == "\x1b(J") mode = 0;
        if (entering != 0 && mode != 0) {
            at += 3;
            continue;
        }
        if (entering != 0) mode = entering;
        const size_t taken = entering != 0 ? 3 : 1;
        result += text.substr(at, taken);
        at += taken;
    }
    if (mode == 1) result += "\x1b(B";
    if (mode == 2) result += "\x1b(J";
    return result;
}

static std::string bytes_of(const std::string &bits)
{
    std::string bytes;
    for (size_t i = 0; i + 8 <= bits.size(); i += 8)
        bytes += static_cast<char>(value_of(bits.substr(i, 8)));
    return bytes;
}

/* What a character outside the alphabet and a missing one mean, by their place in the group. */
static const int outside_log[4] = {121, 123, 125, 127};
static const int missing_log[4] = {0, 122, 124, 126};

Coded base64_decode(const std::string &text)
{
    std::string bits;
    for (size_t at = 0;; ++at) {
        const int place = static_cast<int>(at % 4);
        if (at == text.size()) {
            if (place == 0) return {0, tidied(bytes_of(bits)), {}};
            if (place == 1) return {-1, bytes_of(bits), {122}};
            return {0, tidied(bytes_of(bits)), {missing_log[place]}};
        }
        if (text[at] == '=' && place >= 2) return {0, tidied(bytes_of(bits)), {}};
        const size_t value = alphabet.find(text[at]);
        if (value == std::string::npos) return {-1, bytes_of(bits), {outside_log[place]}};
        bits += bits_of(static_cast<unsigned>(value), 6);
    }
}

/* -- quoted-printable: line by line -- */

static const std::string digits = "0123456789ABCDEF";

/* Bytes above 0x7F have these in place of their first digit. */
static const std::string odd_digits("\0\nFrom \0", 8);

static std::string escaped(unsigned char byte)
{
    const char high = byte >= 0x80 ? odd_digits[byte / 16 - 8] : digits[byte / 16];
    return std::string("=") + high + digits[byte % 16];
}

/* One line without its end; stops with a log number when it grows too long. */
static int encode_line(const std::string &line, int line_length, std::string *output)
{
    const size_t start = output->size();
    for (size_t i = 0; i < line.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(line[i]);
        const bool blank = c == ' ' || c == '\t';
        const bool from = i == 4 && line.compare(0, 5, "From ") == 0;
        const bool plain = !from && (blank || (c > ' ' && c < 0x7F && c != '='));
        *output += plain ? std::string(1, line[i]) : escaped(c);
        if (static_cast<int>(output->size() - start) > line_length)
            return blank ? 128 : (plain ? 130 : 129);
    }
    return 0;
}

Coded quoted_printable_encode(const std::string &text, int line_length)
{
    std::string output;
    for (size_t at = 0;;) {
        const size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end == std::string::npos ? end : end - at);
        const int too_long = encode_line(line, line_length, &output);
        if (too_long != 0) return {-1, output + "=\n", {too_long}};
        if (end == std::string::npos) return {0, output, {}};
        const bool blank_end = !line.empty() && (line.back() == ' ' || line.back() == '\t');
        if (blank_end || line == ".") output += "=\n";
        output += '\n';
        at = end + 1;
    }
}

static int digit(char c)
{
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    const size_t value = digits.find(c);
    return value == std::string::npos ? -1 : static_cast<int>(value);
}

Coded quoted_printable_decode(const std::string &text)
{
    Coded decoded = {0, "", {}};
    for (size_t at = 0; at < text.size(); ++at) {
        const std::string rest = text.substr(at);
        if (rest[0] != '=') {
            decoded.output += rest[0];
        } else if (rest.size() >= 2 && rest[1] == '\n') {
            ++at;
        } else if (rest.size() <= 2) {
            decoded.output += rest;
            decoded.logs.push_back(rest.size() == 1 ? 132 : 133);
            decoded.result = -1;
            return decoded;
        } else if (digit(rest[1]) < 0 || digit(rest[2]) < 0) {
            if (decoded.logs.empty()) decoded.logs.push_back(131);
            decoded.output += '=';
        } else {
            decoded.output += static_cast<char>(digit(rest[1]) * 16 + digit(rest[2]));
            at += 2;
        }
    }
    return decoded;
}

} // namespace reference
