/* The size of a journal's header, found while it is written: what reading the file again would add
   up, line by line as Fgets() hands lines out. */
#ifndef MODULE_MLIST_METER_H
#define MODULE_MLIST_METER_H

#include <stdint.h>

#include "store/ntio.h"

struct HeaderMeter {
    uint32_t size;    /* as handed out: a line end counts two bytes */
    uint32_t written; /* as written */
    uint32_t line;    /* bytes since the last line feed */
    char last;        /* byte */
    bool ended;       /* the empty line has come */
};

/* The next text that goes into the journal. */
inline void meter_text(HeaderMeter *meter, const char *text)
{
    for (; *text != '\0' && !meter->ended; ++text) {
        ++meter->written;
        if (*text != '\n') {
            ++meter->size;
            ++meter->line;
        } else {
            const bool has_cr = meter->line > 0 && meter->last == '\r';
            meter->size += has_cr ? 1 : 2;
            meter->ended = meter->line == (has_cr ? 1u : 0u);
            meter->line = 0;
        }
        meter->last = *text;
    }
}

/* The size, or 0 when only the file can tell: without an empty line, or when the header may lie in
   more than one of the blocks that lines are read in. */
inline uint32_t metered_size(const HeaderMeter *meter)
{
    return meter->ended && meter->written <= FILE_READ_SIZE ? meter->size : 0;
}

#endif
