/* Mail data as it comes over the wire (RFC 5321, 4.5.2) into the bytes of the message.

   The end is CR LF "." CR LF and nothing else: neither LF "." LF nor any other mixture ends the
   data, so a message can never smuggle commands in.  A dot at the beginning of a line is taken
   away where the line follows CR LF, as the sender put it there.

   Line ends become CR LF: a bare LF is a line end; CRs right before a line end vanish; any other
   run of CRs becomes one blank (it would begin a line for some readers and not for others, and at
   the beginning of a header line it would end the header). */
#ifndef HOST_MLISTD_LMTP_DATA_DECODER_H
#define HOST_MLISTD_LMTP_DATA_DECODER_H

#include <cstdint>
#include <string>
#include <string_view>

class DataDecoder
{
  public:
    /* Takes wire bytes up to the end of the data, appends the message's bytes to out and returns
       how many it took: all of them unless finished().  A CR LF is never cut in two. */
    size_t feed(std::string_view wire, std::string &out);

    [[nodiscard]] bool finished() const { return state_ == State::finished; }

    /* A NUL was among the bytes. */
    [[nodiscard]] bool has_nul() const { return has_nul_; }

  private:
    enum class State : uint8_t { line_start, dot, dot_cr, text, cr, finished };
    size_t decode(std::string_view wire, std::string &out);

    State state_ = State::line_start;
    bool has_nul_ = false;
};

#endif
