/* Encoded words decoded, encoded and decoded again, and the other readers of JIS text. */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "headers/head.h"

static std::string unfold(std::string text)
{
    for (size_t at = 0; (at = text.find("\r\n\t", at)) != std::string::npos;)
        text.erase(at, 3);
    return text;
}

/* The decoded text, "" when a word is broken; the buffer has not a byte too many. */
static std::string decoded(const std::string &text)
{
    std::vector<char> out(text.size() + 1);
    if (decode(text.c_str(), out.data(), static_cast<int>(out.size())) < 0) return "";
    return out.data();
}

static std::string encoded(const std::string &text)
{
    /* 33 columns for each character at the worst. */
    std::vector<char> out(text.size() * 40 + 1);
    if (encode_b64(text.c_str(), out.data(), static_cast<int>(out.size())) < 0) abort();
    return out.data();
}

/* A fold stands in front of a word and nowhere else. */
static void demand_words_behind_folds(const std::string &words)
{
    for (size_t at = 0; (at = words.find('\n', at)) != std::string::npos; ++at)
        if (words.compare(at, 10, "\n\t=?ISO-20") != 0) abort();
}

static void cut_everywhere(const std::string &text)
{
    int cut = -1;
    for (int limit = 0; limit < 50; limit += 7)
        for (int mode = 0; mode < 3; ++mode) {
            (void)sprtjis(text.c_str(), limit, mode, &cut);
            if (cut < 0 || static_cast<size_t>(cut) > text.size()) abort();
        }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) return 0;
    const std::string whole(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::string text = whole.substr(0, strlen(whole.c_str()));

    const std::string jis = decoded(text);
    const std::string words = encoded(jis);
    if (jis.find('\n') == std::string::npos) demand_words_behind_folds(words);
    (void)decoded(unfold(words));

    std::vector<char> small(data[0] + 1u);
    (void)encode_b64(jis.c_str(), small.data(), data[0]); /* may be too small: not a finding */
    (void)decode(text.c_str(), small.data(), data[0]);

    cut_everywhere(jis);
    char date[64];
    datestr(text.c_str(), date, sizeof date);
    return 0;
}
