/* Small text helpers.  ASCII only: case and classes never depend on the locale. */
#ifndef HOST_BASE_TEXT_H
#define HOST_BASE_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/* Bytes below the blank, and DEL. */
constexpr bool is_control(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

constexpr bool is_alnum(char c)
{
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z');
}

std::string lower(std::string_view text);
bool same_nocase(std::string_view left, std::string_view right);
bool begins_nocase(std::string_view text, std::string_view beginning);

/* Without blanks, tabs, CR and LF at both ends. */
std::string_view trim(std::string_view text);

/* At each separator, empty pieces kept; "" gives one empty piece. */
std::vector<std::string_view> split(std::string_view text, char separator);

/* The first line, fit for one reply line: controls removed, bytes beyond ASCII shown as "?". */
std::string one_line(std::string_view text);

/* A decimal number and nothing else. */
std::optional<int64_t> parse_number(std::string_view text);

/* "1048576", "512K", "50M", "2G" (powers of 1,024) in bytes. */
std::optional<int64_t> parse_size(std::string_view text);

/* "90", "90s", "5m", "2h", "5d" in seconds. */
std::optional<int64_t> parse_duration(std::string_view text);

#endif
