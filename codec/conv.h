/* Text codecs: base64, quoted-printable (RFC 2045) and Japanese code conversion.
   Pure functions of their arguments: any thread, no lock.  Bytes are unsigned throughout. */
#ifndef CODEC_CONV_H
#define CODEC_CONV_H

#include <stddef.h>
#include <stdint.h>

struct FileRecord;

/* -- base64 (conv_b64.cpp) -- */
extern const char b64_enc_t[];
extern const signed char b64_dec_t[256]; /* -1: not in the alphabet, "=" included */

/* One group of four for three bytes, missing (0 to 2) of them absent; advances *out. */
void base256to64(unsigned char b1, unsigned char b2, unsigned char b3, int missing, char **out);

/* Encodes a text.  0, or -1 (log 120) when the output might not fit: room for one group more than
   written is always demanded. */
int mlist_base64_encode(const char *in, char *out, int size);

/* Encodes a stream in lines of line_length characters, CR LF.  0 or -1. */
int base64_encode_stream(FileRecord *in, FileRecord *out, int line_length);

/* Decodes a text and tidies the JIS escapes of the result.  out needs 3/4 of the input + 8 bytes.
   0, or -1 (logs 121 to 127). */
int mlist_base64_decode(const char *in, char *out);

/* -- quoted-printable (conv_qp.cpp) -- */
extern const char base16[];
extern const signed char base128[256]; /* value of a hexadecimal digit, -1 elsewhere */
int mlist_quoted_printable_encode(const char *in, char *out, int line_length);
int quoted_printable_decode(const char *in, char *out);
int puthexchar(int hi, int lo, char **out, int *reported);

/* -- Japanese (conv_sjis.cpp, conv_euc.cpp, conv_kana.cpp) -- */
extern const char g_kin[];   /* ESC $ B */
extern const char g_kin2[];  /* ESC $ @ */
extern const char g_kout[];  /* ESC ( B */
extern const char g_kout2[]; /* ESC ( J */
extern const uint16_t jis_hk2zk[63];
extern const uint16_t sjis_hk2zk[63];

/* Shift_JIS to JIS.  Returns out; may run past limit by twelve bytes; null input: "". */
char *sjis2jis(const char *in, char *out, int limit);

/* JIS to Shift_JIS; alters its input.  Returns out, or null on an unknown escape or at limit. */
char *jis2sjis(char *in, char *out, int limit);

/* EUC-JP to JIS.  0, or -1 when size runs out (output terminated where it stopped). */
int euc2jis(const char *in, char *out, int size);

#endif
