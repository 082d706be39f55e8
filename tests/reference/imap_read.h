/* An independent reader of FETCH responses: values by the grammar of IMAP, nothing of the module.
 */
#ifndef TESTS_REFERENCE_IMAP_READ_H
#define TESTS_REFERENCE_IMAP_READ_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace imap
{
struct Value {
    enum Kind { NIL, ATOM, STRING, LIST } kind = NIL;
    std::string text;        /* ATOM, STRING */
    std::vector<Value> list; /* LIST */
};

struct Response {
    long sequence = 0;
    std::vector<std::pair<std::string, Value>> items; /* "BODY[1.MIME]<0>" and its value */
    const Value *find(const std::string &name) const; /* or null */
};

/* One whole "* n FETCH (...)" response with its line end; none when it is no such thing. */
std::optional<Response> read_response(const std::string &text);

/* The value that is all of the text. */
std::optional<Value> read_value(const std::string &text);

/* Whether the value has the shape that the grammar demands. */
bool is_envelope(const Value &value);
bool is_body(const Value &value, bool extensions);
} // namespace imap

#endif
