/* The structure parser in its plain form: it reads line by line from wherever it is, to the end of
   the message, for every part anew.  Slow and obvious, for comparison. */
#ifndef TESTS_REFERENCE_MIME_LITERAL_H
#define TESTS_REFERENCE_MIME_LITERAL_H

#include <stddef.h>

#include <memory>
#include <string>
#include <vector>

namespace literal
{
struct Part {
    size_t start = 0, header_length = 0, body_length = 0, lines = 0;
    bool has_type = false;
    std::string type;
    std::unique_ptr<Part> enclosed;
    std::vector<std::unique_ptr<Part>> children;
};

/* Null when a multipart has no boundary. */
std::unique_ptr<Part> parse(const std::string &message, size_t start, size_t header_length,
                            size_t body_length);
} // namespace literal

#endif
