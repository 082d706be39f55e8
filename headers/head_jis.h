/* Reading JIS text byte by byte. */
#ifndef HEADERS_HEAD_JIS_H
#define HEADERS_HEAD_JIS_H

#define JIS_SHIFT_SIZE 3 /* bytes of every escape sequence that changes the kanji mode */

enum JisMode {
    JIS_ASCII = 0,
    JIS_KANJI = 1,    /* after ESC $ B */
    JIS_KANJI_OLD = 2 /* after ESC $ @ */
};

/* The mode that the escape sequence at text changes to; -1 when there is none. */
inline int jis_shift_at(const char *text)
{
    if (text[0] != '\x1b') return -1;
    if (text[1] == '$') return text[2] == 'B' ? JIS_KANJI : text[2] == '@' ? JIS_KANJI_OLD : -1;
    if (text[1] == '(' && (text[2] == 'B' || text[2] == 'J')) return JIS_ASCII;
    return -1;
}

/* The first kanji-in sequence of a text, or its end. */
const char *find_kanji_in(const char *text);

#endif
