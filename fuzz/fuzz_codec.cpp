/* Every codec against its reference, in memory of exactly the size that its contract names.  The
   first byte of the input chooses the codec, the second how much room it gets. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "codec/conv.h"
#include "tests/reference/base64.h"
#include "tests/reference/jis.h"

/* Memory in which the sanitizer sees the first byte written too far. */
struct Output {
    explicit Output(size_t size) : bytes(new char[size]) {}
    std::unique_ptr<char[]> bytes;
    char *data() { return bytes.get(); }
};

static void demand(bool good, const char *codec)
{
    if (good) return;
    fprintf(stderr, "%s differs from its reference\n", codec);
    abort();
}

static void demand_text(Output *out, const std::string &wanted, const char *codec)
{
    demand(memcmp(out->data(), wanted.c_str(), wanted.size() + 1) == 0, codec);
}

static void try_euc2jis(const std::string &text, int room)
{
    const int size = room < 200 ? room : static_cast<int>(text.size()) * 5 + 16;
    Output out(static_cast<size_t>(size));
    const reference::Converted wanted = reference::euc2jis(text, size);
    demand((euc2jis(text.c_str(), out.data(), size) == 0) == wanted.complete, "euc2jis");
    if (size > 0) demand_text(&out, wanted.output, "euc2jis");
}

static void try_sjis2jis(const std::string &text, int room)
{
    const int limit = room < 200 ? room - 20 : static_cast<int>(text.size()) * 5 + 16;
    Output out(static_cast<size_t>(limit + 11 > 1 ? limit + 11 : 1));
    demand(sjis2jis(text.c_str(), out.data(), limit) == out.data(), "sjis2jis");
    demand_text(&out, reference::sjis2jis(text, limit), "sjis2jis");
}

static void try_jis2sjis(const std::string &text, int room)
{
    const int limit = room < 200 ? room : static_cast<int>(text.size()) * 5 + 16;
    Output out(static_cast<size_t>(limit));
    std::string in = text, altered;
    const reference::Converted wanted = reference::jis2sjis(text, limit, &altered);
    demand((jis2sjis(in.data(), out.data(), limit) != nullptr) == wanted.complete, "jis2sjis");
    demand(in == altered, "jis2sjis (input)");
    if (limit > 0) demand_text(&out, wanted.output, "jis2sjis");
}

static void try_base64_encode(const std::string &text, int room)
{
    const int size = room < 200 ? room : static_cast<int>(text.size()) * 2 + 16;
    Output out(static_cast<size_t>(size));
    const reference::Coded wanted = reference::base64_encode(text, size);
    demand(mlist_base64_encode(text.c_str(), out.data(), size) == wanted.result, "base64 encode");
    if (size > 0) demand_text(&out, wanted.output, "base64 encode");
}

static void try_base64_decode(const std::string &text, int)
{
    Output out(text.size() * 3 / 4 + 8);
    const reference::Coded wanted = reference::base64_decode(text);
    demand(mlist_base64_decode(text.c_str(), out.data()) == wanted.result, "base64 decode");
    demand_text(&out, wanted.output, "base64 decode");
}

/* There and back, and what the tidying makes of it. */
static void try_base64_both(const std::string &text, int)
{
    try_base64_decode(reference::base64_of(text), 0);
}

static void try_qp_encode(const std::string &text, int room)
{
    Output out(text.size() * 3 + 3);
    const reference::Coded wanted = reference::quoted_printable_encode(text, room);
    demand(mlist_quoted_printable_encode(text.c_str(), out.data(), room) == wanted.result,
           "quoted-printable encode");
    demand_text(&out, wanted.output, "quoted-printable encode");
}

static void try_qp_decode(const std::string &text, int)
{
    Output out(text.size() + 1);
    const reference::Coded wanted = reference::quoted_printable_decode(text);
    demand(quoted_printable_decode(text.c_str(), out.data()) == wanted.result,
           "quoted-printable decode");
    demand_text(&out, wanted.output, "quoted-printable decode");
}

using Try = void(const std::string &text, int room);

static Try *const tries[] = {
    try_euc2jis,       try_sjis2jis,    try_jis2sjis,  try_base64_encode,
    try_base64_decode, try_base64_both, try_qp_encode, try_qp_decode,
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) return 0;
    const std::string bytes(reinterpret_cast<const char *>(data) + 2, size - 2);
    const std::string text = bytes.substr(0, bytes.find('\0'));
    tries[data[0] % (sizeof tries / sizeof tries[0])](text, data[1]);
    return 0;
}
