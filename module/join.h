/* Paths put together, several dozens for a posting: without a format that is parsed each time. */
#ifndef MODULE_JOIN_H
#define MODULE_JOIN_H

#include <errno.h>
#include <string.h>

#include <initializer_list>

/* The texts one behind the other.  0; -1 with ENAMETOOLONG and an empty text when they have no room
   in size bytes, their terminator included. */
[[nodiscard]] inline int join_texts(char *out, size_t size,
                                    std::initializer_list<const char *> texts)
{
    size_t used = 0;
    for (const char *text : texts) {
        const size_t length = strlen(text);
        if (length >= size - used) {
            out[0] = '\0';
            errno = ENAMETOOLONG;
            return -1;
        }
        memcpy(out + used, text, length);
        used += length;
    }
    out[used] = '\0';
    return 0;
}

#endif
