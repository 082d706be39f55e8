/* Base64 encoding by blocks, inside; the forms of a whole text are in conv.h. */
#ifndef CODEC_CONV_B64_H
#define CODEC_CONV_B64_H

#include <stddef.h>

/* Encode as many whole blocks as they can without reading behind size bytes, and answer how many
   bytes they took; out needs 4/3 of those.  Any processor does the first; the second answers 0 on
   one without AVX2. */
size_t b64_encode_blocks(const unsigned char *in, size_t size, char *out);
size_t b64_encode_wide(const unsigned char *in, size_t size, char *out);

#endif
