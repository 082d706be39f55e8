/* Base64 and quoted-printable as slowly and plainly as can be, for the tests to compare with. */
#ifndef TESTS_REFERENCE_BASE64_H
#define TESTS_REFERENCE_BASE64_H

#include <string>
#include <vector>

namespace reference
{

struct Coded {
    int result;
    std::string output; /* without the terminator; may hold zero bytes */
    std::vector<int> logs;
    bool operator==(const Coded &) const = default;
};

/* The plain RFC form of any bytes, no line breaks. */
std::string base64_of(const std::string &bytes);

Coded base64_encode(const std::string &text, int size);
std::string base64_encode_stream(const std::string &bytes, int line_length);
Coded base64_decode(const std::string &text);

Coded quoted_printable_encode(const std::string &text, int line_length);
Coded quoted_printable_decode(const std::string &text);

} // namespace reference

#endif
