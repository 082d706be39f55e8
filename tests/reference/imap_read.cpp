#include "tests/reference/imap_read.h"

#include <ctype.h>
#include <stdlib.h>
#include <strings.h>

namespace imap
{
namespace
{
class Reader
{
  public:
    explicit Reader(const std::string &text) : text_(text) {}

    bool take(const std::string &expected)
    {
        if (text_.compare(at_, expected.size(), expected) != 0) return false;
        at_ += expected.size();
        return true;
    }
    bool at_end() const { return at_ == text_.size(); }
    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    std::optional<std::string> digits()
    {
        std::string found;
        while (isdigit(static_cast<unsigned char>(peek())))
            found += text_[at_++];
        if (found.empty()) return std::nullopt;
        return found;
    }

    /* An item's name; blanks and parentheses may stand within its brackets. */
    std::optional<std::string> name()
    {
        std::string found;
        bool bracket = false;
        for (char c = peek(); c != '\0' && (bracket || (c != ' ' && c != '(' && c != ')'));
             c = peek()) {
            if (c == '[') bracket = true;
            if (c == ']') bracket = false;
            found += text_[at_++];
        }
        if (found.empty() || bracket) return std::nullopt;
        return found;
    }

    std::optional<Value> value()
    {
        switch (peek()) {
        case '(':
            return list();
        case '"':
            return quoted();
        case '{':
            return literal();
        default:
            return atom();
        }
    }

  private:
    std::optional<Value> list()
    {
        Value value;
        value.kind = Value::LIST;
        take("(");
        while (peek() != ')') {
            const bool blank = take(" ");
            /* bodies of a multipart and addresses follow each other without a blank */
            if (!blank && !value.list.empty() &&
                (peek() != '(' || value.list.back().kind != Value::LIST))
                return std::nullopt;
            if (blank && value.list.empty()) return std::nullopt;
            std::optional<Value> element = this->value();
            if (!element) return std::nullopt;
            value.list.push_back(*element);
        }
        take(")");
        return value;
    }

    std::optional<Value> quoted()
    {
        Value value;
        value.kind = Value::STRING;
        for (++at_; peek() != '"'; ++at_) {
            if (peek() == '\\') {
                ++at_;
                if (peek() != '"' && peek() != '\\') return std::nullopt;
            }
            if (at_ >= text_.size() || peek() == '\r' || peek() == '\n' ||
                static_cast<unsigned char>(peek()) >= 0x80)
                return std::nullopt;
            value.text += peek();
        }
        ++at_;
        return value;
    }

    std::optional<Value> literal()
    {
        take("{");
        const std::optional<std::string> count = digits();
        if (!count || count->size() > 9 || !take("}\r\n")) return std::nullopt;
        const size_t length = static_cast<size_t>(atol(count->c_str()));
        if (text_.size() - at_ < length) return std::nullopt;
        Value value;
        value.kind = Value::STRING;
        value.text = text_.substr(at_, length);
        at_ += length;
        return value;
    }

    std::optional<Value> atom()
    {
        Value value;
        while (peek() != '\0' && std::string(" ()\"{\r\n").find(peek()) == std::string::npos)
            value.text += text_[at_++];
        if (value.text.empty()) return std::nullopt;
        value.kind = value.text == "NIL" ? Value::NIL : Value::ATOM;
        return value;
    }

    const std::string &text_;
    size_t at_ = 0;
};

bool is_string(const Value &value)
{
    return value.kind == Value::STRING;
}

bool is_nstring(const Value &value)
{
    return value.kind == Value::NIL || value.kind == Value::STRING;
}

bool is_number(const Value &value)
{
    return value.kind == Value::ATOM &&
           value.text.find_first_not_of("0123456789") == std::string::npos;
}

bool is_address(const Value &value)
{
    if (value.kind != Value::LIST || value.list.size() != 4) return false;
    for (const Value &field : value.list)
        if (!is_nstring(field)) return false;
    return true;
}

bool is_address_list(const Value &value)
{
    if (value.kind == Value::NIL) return true;
    if (value.kind != Value::LIST || value.list.empty()) return false;
    for (const Value &address : value.list)
        if (!is_address(address)) return false;
    return true;
}

bool is_parameter_list(const Value &value)
{
    if (value.kind == Value::NIL) return true;
    if (value.kind != Value::LIST || value.list.empty() || value.list.size() % 2 != 0) return false;
    for (const Value &text : value.list)
        if (!is_string(text)) return false;
    return true;
}

bool is_disposition(const Value &value)
{
    if (value.kind == Value::NIL) return true;
    return value.kind == Value::LIST && value.list.size() == 2 && is_string(value.list[0]) &&
           is_parameter_list(value.list[1]);
}

bool is_multipart(const std::vector<Value> &fields, bool extensions)
{
    size_t bodies = 0;
    while (bodies < fields.size() && fields[bodies].kind == Value::LIST &&
           is_body(fields[bodies], extensions))
        ++bodies;
    const size_t rest = fields.size() - bodies;
    if (bodies == 0 || rest != (extensions ? 4u : 1u) || !is_string(fields[bodies])) return false;
    return !extensions || (is_parameter_list(fields[bodies + 1]) &&
                           is_disposition(fields[bodies + 2]) && is_nstring(fields[bodies + 3]));
}

bool same(const Value &value, const char *word)
{
    return strcasecmp(value.text.c_str(), word) == 0;
}

/* Fields that follow the seven of every part: lines of a text, the message within a message. */
size_t own_fields(const std::vector<Value> &fields, bool extensions)
{
    if (same(fields[0], "TEXT")) return fields.size() > 7 && is_number(fields[7]) ? 1 : 99;
    if (!same(fields[0], "MESSAGE") || !same(fields[1], "RFC822")) return 0;
    const bool good = fields.size() > 9 && is_envelope(fields[7]) &&
                      is_body(fields[8], extensions) && is_number(fields[9]);
    return good ? 3 : 99;
}

bool is_single(const std::vector<Value> &fields, bool extensions)
{
    if (fields.size() < 7 || !is_string(fields[0]) || !is_string(fields[1]) ||
        !is_parameter_list(fields[2]) || !is_nstring(fields[3]) || !is_nstring(fields[4]) ||
        !is_string(fields[5]) || !is_number(fields[6]))
        return false;
    const size_t known = 7 + own_fields(fields, extensions);
    if (!extensions) return fields.size() == known;
    return fields.size() == known + 3 && is_nstring(fields[known]) &&
           is_disposition(fields[known + 1]) && is_nstring(fields[known + 2]);
}
} // namespace

const Value *Response::find(const std::string &name) const
{
    for (const auto &item : items)
        if (item.first == name) return &item.second;
    return nullptr;
}

std::optional<Value> read_value(const std::string &text)
{
    Reader reader(text);
    const std::optional<Value> value = reader.value();
    if (!value || !reader.at_end()) return std::nullopt;
    return value;
}

std::optional<Response> read_response(const std::string &text)
{
    Reader reader(text);
    Response response;
    if (!reader.take("* ")) return std::nullopt;
    const std::optional<std::string> sequence = reader.digits();
    if (!sequence || !reader.take(" FETCH (")) return std::nullopt;
    response.sequence = atol(sequence->c_str());
    while (reader.peek() != ')') {
        if (!response.items.empty() && !reader.take(" ")) return std::nullopt;
        const std::optional<std::string> name = reader.name();
        if (!name || !reader.take(" ")) return std::nullopt;
        const std::optional<Value> value = reader.value();
        if (!value) return std::nullopt;
        response.items.emplace_back(*name, *value);
    }
    if (!reader.take(")\r\n") || !reader.at_end()) return std::nullopt;
    return response;
}

bool is_envelope(const Value &value)
{
    if (value.kind != Value::LIST || value.list.size() != 10) return false;
    for (size_t i = 0; i < 10; ++i) {
        const bool addresses = i >= 2 && i <= 7;
        if (!(addresses ? is_address_list(value.list[i]) : is_nstring(value.list[i]))) return false;
    }
    return true;
}

bool is_body(const Value &value, bool extensions)
{
    if (value.kind != Value::LIST || value.list.empty()) return false;
    return value.list[0].kind == Value::LIST ? is_multipart(value.list, extensions)
                                             : is_single(value.list, extensions);
}
} // namespace imap
