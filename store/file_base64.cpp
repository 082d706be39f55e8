/* A file's base64 form, file to file.  No delivery needs it. */
#include "codec/conv.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/rewrite.h"

#define BASE64_LINE_LENGTH 76

/* 0, or -1 (logged). */
static int encode(FileRecord *in, FileRecord *out)
{
    const bool encoded = base64_encode_stream(in, out, BASE64_LINE_LENGTH) == 0;
    const bool written = encoded && f_close(out) == 1;
    if (!written) (void)trace_sys(&g_logh, 1, 264, "base64 encode stream error %m");
    if (!encoded) abandon_file(out);
    return written ? 0 : -1;
}

int binary_to_text(const char *source, const char *target)
{
    FileRecord *in = f_open(source, "r");
    if (in == nullptr) return -1;
    FileRecord *out = f_open(target, "w");
    const int result = out == nullptr ? -1 : encode(in, out);
    abandon_file(in);
    return result;
}
