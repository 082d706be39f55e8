/* ASCII classes and case-blind comparison that no locale can change. */
#ifndef MODULE_ASCII_H
#define MODULE_ASCII_H

#include <stddef.h>

inline bool is_ascii_digit(unsigned char c)
{
    return c >= '0' && c <= '9';
}

inline bool is_blank(unsigned char c)
{
    return c == ' ' || c == '\t';
}

inline unsigned char ascii_lower(unsigned char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + 32) : c;
}

/* Whether the first size bytes are equal but for ASCII case (bytes may be NUL). */
inline bool same_bytes_nocase(const char *left, const char *right, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        if (ascii_lower(static_cast<unsigned char>(left[i])) !=
            ascii_lower(static_cast<unsigned char>(right[i])))
            return false;
    return true;
}

/* Whether text begins with prefix, but for ASCII case. */
inline bool begins_nocase(const char *text, const char *prefix)
{
    for (; *prefix != '\0'; ++text, ++prefix)
        if (ascii_lower(static_cast<unsigned char>(*text)) !=
            ascii_lower(static_cast<unsigned char>(*prefix)))
            return false;
    return true;
}

/* Whether the texts are equal but for ASCII case. */
inline bool same_text_nocase(const char *left, const char *right)
{
    for (; ascii_lower(static_cast<unsigned char>(*left)) ==
           ascii_lower(static_cast<unsigned char>(*right));
         ++left, ++right)
        if (*left == '\0') return true;
    return false;
}

#endif
