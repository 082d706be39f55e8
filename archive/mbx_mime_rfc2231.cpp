/* Joining of parameters that RFC 2231 lets a mailer cut into segments. */
#include <string.h>

#include "archive/growing.h"
#include "archive/mime.h"

#define LONGEST_NAME 255
#define LONGEST_VALUE 1023

namespace
{
struct Piece {
    const char *text;
    size_t length;
    const char *end() const { return text + length; }
};

/* The parameters of a text, one after the other, none copied. */
class PieceWalk
{
  public:
    explicit PieceWalk(const char *text) : next_(text) { step(); }
    bool at_end() const { return piece_.text == nullptr; }
    const Piece &piece() const { return piece_; }
    void step();

  private:
    const char *next_;
    Piece piece_ = {nullptr, 0};
};

/* The result, its separators included. */
class Joined
{
  public:
    bool good = true;

    void put(const char *text, size_t length) { good = good && text_.append(text, length); }
    void put(const Piece &piece) { put(piece.text, piece.length); }
    void put(char c) { put(&c, 1); }
    void begin()
    {
        if (!first_) put("; ", 2);
        first_ = false;
    }
    void put_encoded(char c);
    char *take() { return good && text_.finish() ? text_.take() : nullptr; }

  private:
    GrowingText text_;
    bool first_ = true;
};
} // namespace

static bool separates(char c)
{
    return c == ';' || c == ' ' || c == '\t';
}

/* Parameters end at a semicolon or blank outside of quotes; an escaped one does not count. */
void PieceWalk::step()
{
    piece_ = {nullptr, 0};
    if (*next_ == '\0') return;
    const char *end = next_;
    for (bool quoted = false; *end != '\0' && (quoted || !separates(*end)); ++end) {
        if (*end == '"')
            quoted = !quoted;
        else if (*end == '\\' && !quoted && end[1] != '\0')
            ++end;
    }
    piece_ = {next_, static_cast<size_t>(end - next_)};
    if (*end != '\0') ++end;
    while (is_blank(static_cast<unsigned char>(*end)))
        ++end;
    next_ = end;
}

/* KEPT: a byte beyond ASCII becomes %FF, whichever it is.
   Test: Rfc2231.ShowsBytesBeyondAsciiAsFF */
void Joined::put_encoded(char c)
{
    static const char digits[] = "0123456789ABCDEF";
    const unsigned char byte =
        static_cast<unsigned char>(c) < 0x80 ? static_cast<unsigned char>(c) : 0xFF;
    const char encoded[] = {'%', digits[byte >> 4], digits[byte & 15]};
    put(encoded, sizeof(encoded));
}

static const char *find_in(const Piece &piece, const char *pattern)
{
    return static_cast<const char *>(memmem(piece.text, piece.length, pattern, strlen(pattern)));
}

static Piece at_most(const Piece &piece, size_t length)
{
    return {piece.text, piece.length < length ? piece.length : length};
}

/* From text to the end of the piece. */
static Piece rest_of(const Piece &piece, const char *text)
{
    return {text, static_cast<size_t>(piece.end() - text)};
}

/* A value without the quotes around it. */
static Piece unquoted(const Piece &value)
{
    if (value.length == 0 || value.text[0] != '"') return value;
    const Piece content = rest_of(value, value.text + 1);
    const void *quote = memchr(content.text, '"', content.length);
    if (quote == nullptr) return content;
    return {content.text, static_cast<size_t>(static_cast<const char *>(quote) - content.text)};
}

/* Behind "name*digits" of a segment that continues name; null when the piece is none. */
static const char *behind_number(const Piece &piece, const Piece &name)
{
    if (piece.length <= name.length || memcmp(piece.text, name.text, name.length) != 0)
        return nullptr;
    const char *text = piece.text + name.length;
    if (*text != '*') return nullptr;
    for (++text; text < piece.end() && is_ascii_digit(static_cast<unsigned char>(*text));)
        ++text;
    return text;
}

/* name*0=value; name*1=value: name="value value" */
static void join_plain(PieceWalk *walk, const char *mark, Joined *out)
{
    const Piece first = walk->piece();
    const Piece name = at_most({first.text, static_cast<size_t>(mark - first.text)}, LONGEST_NAME);
    out->begin();
    out->put(name);
    out->put("=\"", 2);
    out->put(at_most(unquoted(rest_of(first, mark + strlen("*0="))), LONGEST_VALUE));
    for (walk->step(); !walk->at_end(); walk->step()) {
        const Piece piece = walk->piece();
        const char *text = behind_number(piece, name);
        if (text == nullptr || text == piece.end() || *text != '=') break;
        out->put(unquoted(rest_of(piece, text + 1)));
    }
    out->put('"');
}

/* A segment without encoding among encoded ones: encoded here. */
static void put_plain_segment(const Piece &value, Joined *out)
{
    const char *text = value.text;
    if (value.length > 0 && *text == '"') ++text;
    for (; text < value.end() && *text != '"'; ++text) {
        const bool escape = *text == '\\';
        if (escape && ++text == value.end()) break;
        if (!escape && is_ascii_alnum(static_cast<unsigned char>(*text)))
            out->put(*text);
        else
            out->put_encoded(*text);
    }
}

/* name*0*=charset'language'value; name*1*=value; name*2=value: name=charset'language'value */
static void join_encoded(PieceWalk *walk, const char *mark, Joined *out)
{
    const Piece first = walk->piece();
    const Piece name = {first.text, static_cast<size_t>(mark - first.text)};
    out->begin();
    out->put(name);
    out->put('=');
    out->put(rest_of(first, mark + strlen("*0*=")));
    for (walk->step(); !walk->at_end(); walk->step()) {
        const Piece piece = walk->piece();
        const char *text = behind_number(piece, name);
        if (text == nullptr || text == piece.end()) break;
        if (*text == '=')
            put_plain_segment(rest_of(piece, text + 1), out);
        else if (*text == '*' && text + 1 < piece.end() && text[1] == '=')
            out->put(rest_of(piece, text + 2));
        else
            break;
    }
}

char *rfc2231(const char *parameters)
{
    if (*parameters == '\0') return nullptr;
    Joined out;
    for (PieceWalk walk(parameters); !walk.at_end();) {
        const Piece &piece = walk.piece();
        if (const char *encoded = find_in(piece, "*0*=")) {
            join_encoded(&walk, encoded, &out);
        } else if (const char *plain = find_in(piece, "*0=")) {
            join_plain(&walk, plain, &out);
        } else {
            out.begin();
            out.put(piece);
            walk.step();
        }
    }
    return out.take();
}
