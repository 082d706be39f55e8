/* Text codecs: base64, quoted-printable (RFC 2045) and Japanese code conversion.
   Pure functions of their arguments: any thread, no lock, no memory of their own.  Texts end at
   their NUL; bytes are unsigned throughout; no output may overlap its input unless it says so.
   What goes wrong is logged at level 3 with the number given. */
#ifndef CODEC_CONV_H
#define CODEC_CONV_H

#include <stddef.h>
#include <stdint.h>

struct FileRecord;

/* -- base64 (conv_b64.cpp) -- */
extern const char b64_enc_t[];
extern const signed char b64_dec_t[256]; /* -1: not in the alphabet, "=" included */

/* One group of four characters for three bytes, the last missing (0 to 2) of them absent, not
   looked at and shown as "="; advances *out. */
void base256to64(unsigned char b1, unsigned char b2, unsigned char b3, int missing, char **out);

/* Encodes a text, without line breaks.  0, or -1 with an empty output (log 120) when it might not
   fit into size bytes: behind every full group there must be room for four characters and the
   terminator. */
int mlist_base64_encode(const char *in, char *out, int size);

/* Encodes what is left of in, in lines of line_length characters rounded up to a group (line_length
   4 or less: of one group), CR LF.  A last group with padding that begins a line gets no line end.
   0, or -1 when reading or writing failed (logged by the file layer). */
int base64_encode_stream(FileRecord *in, FileRecord *out, int line_length);

/* Decodes a text without blanks or line breaks up to its end or its first "=", deletes an escape
   into a two-byte set where the text is in one already, and leaves a set that the text ends in. out
   needs 3/4 of the input + 8 bytes, and may be in.
   0, or -1 on a byte outside the alphabet (logs 121, 123, 125, 127) and on a lone first character
   of a group (122), with out holding what was decoded before.  A text that stops after two or three
   characters of a group is decoded whole (0, but logs 124, 126). */
int mlist_base64_decode(const char *in, char *out);

/* -- quoted-printable (conv_qp.cpp) -- */
extern const char base16[];
extern const signed char base128[256]; /* value of a hexadecimal digit, -1 elsewhere */
extern const char From[];              /* what a line end and "From " look like */

/* Encodes 7-bit text with LF line ends.  line_length is a limit, lines are not wrapped.  out needs
   3 times the input + 3 bytes.  0, or -1 when a line grew too long: out then ends in a soft break
   behind the character that was too much (logs 128, 129, 130).  Bytes above 0x7F come out wrong,
   and those of 0x80-0x8F and 0xF0-0xFF with a NUL in the output. */
int mlist_quoted_printable_encode(const char *in, char *out, int line_length);

/* Decodes a text; an escape that is none is copied (log 131, once).  out needs the input's size,
   and may be in.  0, or -1 when the text stops inside an escape, which is copied too (logs 132,
   133). */
int quoted_printable_decode(const char *in, char *out);

/* The byte of two hexadecimal digits of either case; advances *out.  0, or -1 and nothing written
   on any other character (log 131 unless *reported, which is set) or on a NUL (log 134). */
int puthexchar(int hi, int lo, char **out, int *reported);

/* -- Japanese (conv_kana.cpp, conv_sjis.cpp, conv_euc.cpp) --
   JIS is ISO-2022-JP.  Half-width katakana become full-width, with their sound marks merged. */
extern const char g_kin[];   /* ESC $ B */
extern const char g_kin2[];  /* ESC $ @ */
extern const char g_kout[];  /* ESC ( B */
extern const char g_kout2[]; /* ESC ( J */
extern const uint16_t jis_hk2zk[63];
extern const uint16_t sjis_hk2zk[63];

/* Shift_JIS to JIS; ends in ASCII.  Returns out; a null input gives "".  The text is cut behind the
   character at which limit + 3 bytes are reached, so out needs limit + 11 bytes (12 are plenty);
   five bytes for each of the input cut nothing.  A lone lead byte at the end is dropped; no other
   pair is tested, so that what is no character gives other bytes, possibly a NUL. */
char *sjis2jis(const char *in, char *out, int limit);

/* JIS to Shift_JIS; sets top bits in its input.  Returns out, or null when the result and its
   terminator need more than limit bytes, on an unknown escape, on a byte that is neither printable
   ASCII nor part of a run (line ends too), and when the text ends inside a run; out then holds what
   was converted before (nothing is written with limit 0). */
char *jis2sjis(char *in, char *out, int limit);

/* EUC-JP to JIS; ends in ASCII.  0, or -1 when size bytes are not enough: out then holds the
   characters and escapes that fitted, the last run perhaps not closed.  A lone lead byte at the end
   and a single shift in front of anything but katakana are dropped; 0x8F and 0x80-0xA0 are copied;
   whatever follows a lead byte is taken with it. */
int euc2jis(const char *in, char *out, int size);

#endif
