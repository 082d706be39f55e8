/* Cutting EUC-JP text without cutting a character. */
#ifndef HOST_LIBLDAPUSE_TEXT_H
#define HOST_LIBLDAPUSE_TEXT_H

#include <stddef.h>

#include <string>
#include <string_view>

/* How much of the text, at most limit bytes of it, ends with a whole character. */
size_t whole_characters(std::string_view text, size_t limit);

/* CR LF for every line end, NUL left out, no line end at the end. */
std::string mail_text(std::string_view text);

/* The first line without its end, cut to limit bytes at most; used_out counts what it takes up in
   the text, line end included. */
std::string first_line(std::string_view text, size_t limit, size_t &used_out);

#endif
