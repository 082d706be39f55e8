/* Line ends of a message on its way out, in pieces of any size.

   Lists hand over mail with CR LF, LF or both.  On the wire a lone LF is a line end and a lone CR
   is a blank: passed on, either could make the next server see the end of the message, or of its
   header, where this one saw none. */
#ifndef HOST_MLISTD_OUTBOUND_LINES_H
#define HOST_MLISTD_OUTBOUND_LINES_H

#include <string>
#include <string_view>

/* CR LF everywhere, a dot doubled at the start of a line. */
class WireLines
{
  public:
    void feed(std::string_view piece, std::string &out);
    /* Ends the last line when it has no end. */
    void finish(std::string &out);

  private:
    void append_text(std::string_view text, std::string &out);
    bool at_start_ = true;
    bool held_cr_ = false; /* the last byte was CR: what it is shows with the next piece */
};

/* LF for CR LF; everything else as it is. */
class UnixLines
{
  public:
    void feed(std::string_view piece, std::string &out);
    void finish(std::string &out);

  private:
    bool at_start_ = true;
    bool held_cr_ = false;
};

#endif
