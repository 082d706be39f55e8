/* What the module needs of a message's header, and what the edge wants to know of it.

   Return-Path lines go (the module takes one for a mailer daemon's work), the header is ended by a
   blank line, also where the message has no body, and where something stands in it that is no
   header line the blank line comes before that.  All else passes unchanged, folding included. */
#ifndef HOST_MLISTD_LMTP_HEADER_FILTER_H
#define HOST_MLISTD_LMTP_HEADER_FILTER_H

#include <cstdint>
#include <string>
#include <string_view>

/* Collected on the way. */
struct HeaderFacts {
    std::string from{};           /* of all From lines, joined exactly as the module joins them */
    std::string auto_submitted{}; /* of the last such line */
    std::string precedence{};     /* of the last such line */
    size_t received = 0;          /* lines: hops so far */
};

class HeaderFilter
{
  public:
    /* Text with CR LF line ends, in any pieces that cut no CR LF; appends what stays to out. */
    void feed(std::string_view text, std::string &out);

    /* The message has ended. */
    void finish(std::string &out);

    [[nodiscard]] const HeaderFacts &facts() const { return facts_; }

  private:
    enum class Part : uint8_t { header, rest_of_line, body };
    enum class Field : uint8_t {
        none, /* no header line yet */
        other,
        from,
        return_path,
        auto_submitted,
        precedence,
        received
    };

    void take_line(std::string &out);
    bool take_header_line();
    void begin_field(Field field);
    void collect(std::string_view value);
    static Field field_of(std::string_view line, size_t &value_at);

    HeaderFacts facts_;
    std::string line_;
    Part part_ = Part::header;
    Field field_ = Field::none;
};

#endif
