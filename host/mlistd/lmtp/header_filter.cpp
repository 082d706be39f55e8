#include "host/mlistd/lmtp/header_filter.h"

#include "host/base/text.h"

/* A longer header line is judged by its beginning and passed on as it comes. */
static constexpr size_t LINE_MAX_HELD = 16 * 1024;

/* More of a value is not kept: the module refuses senders of 4,096 characters. */
static constexpr size_t VALUE_MAX = 8192;

static void append_value(std::string &value, std::string_view text)
{
    if (value.size() < VALUE_MAX) value.append(text.substr(0, VALUE_MAX - value.size()));
}

/* Field::none for a line that is no header line. */
HeaderFilter::Field HeaderFilter::field_of(std::string_view line, size_t &value_at)
{
    static constexpr struct {
        std::string_view name;
        Field field;
    } rows[] = {{"from", Field::from},
                {"return-path", Field::return_path},
                {"auto-submitted", Field::auto_submitted},
                {"precedence", Field::precedence},
                {"received", Field::received}};
    size_t end = 0;
    while (end < line.size() && line[end] > ' ' && line[end] < 0x7f && line[end] != ':')
        ++end;
    size_t colon = end;
    while (colon < line.size() && (line[colon] == ' ' || line[colon] == '\t'))
        ++colon;
    const bool has_colon = end > 0 && colon < line.size() && line[colon] == ':';
    value_at = has_colon ? colon + 1 : line.size();
    if (!has_colon) return end >= LINE_MAX_HELD ? Field::other : Field::none;
    /* The module knows a From line by the colon right after the name. */
    if (end != colon && same_nocase(line.substr(0, end), "from")) return Field::other;
    for (const auto &row : rows)
        if (same_nocase(line.substr(0, end), row.name)) return row.field;
    return Field::other;
}

void HeaderFilter::begin_field(Field field)
{
    field_ = field;
    if (field == Field::auto_submitted) facts_.auto_submitted.clear();
    if (field == Field::precedence) facts_.precedence.clear();
    if (field == Field::received) ++facts_.received;
}

void HeaderFilter::collect(std::string_view value)
{
    if (field_ == Field::from) append_value(facts_.from, value.substr(0, value.find('\r')));
    if (field_ == Field::auto_submitted) append_value(facts_.auto_submitted, trim(value));
    if (field_ == Field::precedence) append_value(facts_.precedence, trim(value));
}

/* False when line_ cannot stand in a header. */
bool HeaderFilter::take_header_line()
{
    const std::string_view line = line_;
    const bool first = field_ == Field::none;
    if (!first && (line[0] == ' ' || line[0] == '\t')) {
        collect(line.substr(1));
        return true;
    }
    /* The envelope line of a mailbox file: the module drops it. */
    if (first && line.starts_with("From ")) return true;
    size_t value_at = 0;
    const Field field = field_of(line, value_at);
    if (field == Field::none) return false;
    begin_field(field);
    collect(line.substr(value_at));
    return true;
}

/* line_ is a whole line, or as much of a long one as is held. */
void HeaderFilter::take_line(std::string &out)
{
    part_ = line_.ends_with('\n') ? Part::header : Part::rest_of_line;
    if (line_ == "\r\n") {
        part_ = Part::body;
    } else if (!take_header_line()) {
        out += "\r\n";
        part_ = Part::body;
    }
    if (part_ == Part::body || field_ != Field::return_path) out += line_;
    line_.clear();
}

void HeaderFilter::feed(std::string_view text, std::string &out)
{
    while (!text.empty() && part_ != Part::body) {
        const size_t end = text.find('\n');
        const std::string_view piece =
            text.substr(0, end == std::string_view::npos ? end : end + 1);
        text.remove_prefix(piece.size());
        if (part_ == Part::rest_of_line) {
            if (field_ != Field::return_path) out += piece;
            if (piece.ends_with('\n')) part_ = Part::header;
            continue;
        }
        line_ += piece;
        if (line_.ends_with('\n') || line_.size() >= LINE_MAX_HELD) take_line(out);
    }
    out += text;
}

void HeaderFilter::finish(std::string &out)
{
    if (part_ == Part::rest_of_line) out += "\r\n";
    if (!line_.empty()) {
        line_ += "\r\n";
        take_line(out);
    }
    if (part_ != Part::body) out += "\r\n";
    part_ = Part::body;
}
