/* JIS text: measuring and cutting. */
#include "headers/head_jis.h"

#include <string.h>

#include "headers/head.h"

const char *find_kanji_in(const char *text)
{
    const char *at = strchr(text, '\x1b');
    for (; at != nullptr; at = strchr(at + 1, '\x1b'))
        if (jis_shift_at(at) > JIS_ASCII) return at;
    return text + strlen(text);
}

int does_encode(const char *text)
{
    return *find_kanji_in(text) != '\0' ? 1 : 0;
}

int mlist_strlen(const char *text)
{
    return static_cast<int>(strlen(text));
}

int sprtjis(const char *text, int limit, int initial_mode, int *cut_out)
{
    int mode = initial_mode;
    int counted = 0;
    int kanji_bytes = 0; /* since the last kanji-in */
    int at = 0;
    while (counted < limit && text[at] != '\0') {
        const int shift = jis_shift_at(text + at);
        if (shift < 0) {
            ++counted;
            ++at;
            if (mode != JIS_ASCII) ++kanji_bytes;
            continue;
        }
        mode = shift;
        at += JIS_SHIFT_SIZE;
        if (mode != JIS_ASCII) kanji_bytes = 0;
    }
    *cut_out = at;
    if (counted < limit) return -1;
    if (mode != JIS_ASCII && kanji_bytes % 2 != 0) --*cut_out;
    return mode;
}
