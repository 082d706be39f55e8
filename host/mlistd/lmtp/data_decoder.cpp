#include "host/mlistd/lmtp/data_decoder.h"

#include <cstring>

namespace
{

/* Finds the next place of a byte; remembers it, so that a text is searched once however often it
   is asked for. */
class NextByte
{
  public:
    NextByte(std::string_view text, char byte) : text_(text), byte_(byte) {}

    size_t from(size_t position)
    {
        if (known_ && next_ >= position) return next_;
        const size_t found = text_.find(byte_, position);
        next_ = found == std::string_view::npos ? text_.size() : found;
        known_ = true;
        return next_;
    }

  private:
    std::string_view text_;
    char byte_;
    size_t next_ = 0;
    bool known_ = false;
};

} // namespace

size_t DataDecoder::feed(std::string_view wire, std::string &out)
{
    const size_t taken = decode(wire, out);
    if (!has_nul_) has_nul_ = taken > 0 && memchr(wire.data(), '\0', taken) != nullptr;
    return taken;
}

size_t DataDecoder::decode(std::string_view wire, std::string &out)
{
    NextByte next_cr(wire, '\r');
    NextByte next_lf(wire, '\n');
    size_t at = 0;
    while (at < wire.size() && state_ != State::finished) {
        const char c = wire[at];
        switch (state_) {
        case State::line_start:
            state_ = c == '.' ? State::dot : State::text;
            if (c == '.') ++at;
            break;
        case State::dot:
            state_ = c == '\r' ? State::dot_cr : State::text;
            if (c == '\r') ++at;
            break;
        case State::dot_cr:
            state_ = c == '\n' ? State::finished : State::cr;
            if (c == '\n') ++at;
            break;
        case State::cr:
            if (c == '\r') {
                ++at;
            } else if (c == '\n') {
                ++at;
                out += "\r\n";
                state_ = State::line_start;
            } else {
                out += ' ';
                state_ = State::text;
            }
            break;
        case State::text: {
            const size_t end = std::min(next_cr.from(at), next_lf.from(at));
            out.append(wire, at, end - at);
            at = end;
            if (at == wire.size()) break;
            if (wire[at] == '\r') {
                state_ = State::cr;
            } else {
                out += "\r\n";
            }
            ++at;
            break;
        }
        case State::finished:
            break;
        }
    }
    return at;
}
