/* The codecs on 64 MiB of text, next to memcpy, the C library's iconv and the base64 program on the
   same text; and on single lines, where the cost of a call shows. */
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "codec/conv.h"
#include "store/ntio.h"

static constexpr size_t TEXT_SIZE = size_t{64} << 20;

enum class Code { euc, sjis, jis };

/* -- texts -- */

static std::string recoded(const std::string &text, const char *from, const char *to)
{
    iconv_t state = iconv_open(to, from);
    std::string copy = text, out(text.size() * 5 + 16, '\0');
    char *in = copy.data(), *end = out.data();
    size_t left = copy.size(), room = out.size();
    if (iconv(state, &in, &left, &end, &room) == static_cast<size_t>(-1)) abort();
    iconv(state, nullptr, nullptr, &end, &room);
    iconv_close(state);
    out.resize(out.size() - room);
    return out;
}

static const char *name_of(Code code)
{
    return code == Code::euc ? "EUC-JP" : (code == Code::sjis ? "SHIFT_JIS" : "ISO-2022-JP");
}

/* What a list's mail looks like: runs of Japanese of any length, names and numbers in between,
   short lines.  JIS has blanks for line ends, which jis2sjis() refuses. */
static std::string sample(Code code)
{
    std::string text =
        "会員各位\n"
        "平素より大変お世話になっております。事務局の山田です。\n"
        "さて、第12回定例会議を下記の通り開催いたしますので、ご出席をお願いします。\n"
        "\n"
        "  日時: 11月21日(土) 13:30-17:00\n"
        "  場所: 東京都千代田区 ABCビル 3F 会議室\n"
        "  URL: http://www.example.jp/meeting/index.html\n"
        "\n"
        "カタカナ、ひらがな、漢字の混じった文章を変換する速さを測っています。\n"
        "なお、欠席される方は前日までにご連絡ください。よろしくお願い致します。\n"
        "> 先日の資料を送ります。 Subject: Re: [mylist:00012]\n";
    if (code == Code::jis)
        for (char &c : text)
            if (c == '\n') c = ' ';
    return recoded(text, "UTF-8", name_of(code));
}

/* The form of JIS that has half-width katakana of its own. */
#define JIS_WITH_KATAKANA "ISO-2022-JP-3"

/* Half-width katakana with their sound marks, as terminals and old telephones write them. */
static std::string katakana_sample(Code code)
{
    const std::string text = "ｶｲｷﾞﾉｵｼﾗｾ: ﾄｳｷｮｳﾎﾝｼｬ 3F ﾀﾞｲ12ｶｲ ﾃｲﾚｲｶｲｷﾞ ｦ ｶｲｻｲ ｲﾀｼﾏｽ.\n"
                             "ｼﾞﾑｷｮｸ ﾉ ﾔﾏﾀﾞ ﾃﾞｽ. ｺﾞｼｭｯｾｷ ｸﾀﾞｻｲ. ﾊﾞｼｮ ﾊ ﾎﾟｽﾀｰ ｦ ｺﾞﾗﾝ ｸﾀﾞｻｲ.\n";
    if (code != Code::jis) return recoded(text, "UTF-8", name_of(code));
    std::string jis = recoded(text, "UTF-8", JIS_WITH_KATAKANA);
    for (char &c : jis)
        if (c == '\n') c = ' ';
    return jis;
}

/* The piece over and over, up to about size bytes. */
static std::string filled(const std::string &piece, size_t size)
{
    std::string text;
    text.reserve(size + piece.size());
    while (text.size() < size)
        text += piece;
    return text;
}

static const std::string &japanese(Code code)
{
    static const std::string texts[] = {filled(sample(Code::euc), TEXT_SIZE),
                                        filled(sample(Code::sjis), TEXT_SIZE),
                                        filled(sample(Code::jis), TEXT_SIZE)};
    return texts[static_cast<int>(code)];
}

static const std::string &katakana(Code code)
{
    static const std::string texts[] = {filled(katakana_sample(Code::euc), TEXT_SIZE),
                                        filled(katakana_sample(Code::sjis), TEXT_SIZE),
                                        filled(katakana_sample(Code::jis), TEXT_SIZE)};
    return texts[static_cast<int>(code)];
}

static const std::string &ascii()
{
    static const std::string text =
        filled("The quick brown fox jumps over the lazy dog, and so on and on.\r\n", TEXT_SIZE);
    return text;
}

static const std::string &euc_lines()
{
    return japanese(Code::euc);
}

static const std::string &sjis_lines()
{
    return japanese(Code::sjis);
}

static const std::string &jis_lines()
{
    return japanese(Code::jis);
}

static const std::string &euc_katakana()
{
    return katakana(Code::euc);
}

static const std::string &sjis_katakana()
{
    return katakana(Code::sjis);
}

static const std::string &jis_katakana()
{
    return katakana(Code::jis);
}

static const std::string &base64_text()
{
    static const std::string text = [] {
        std::string out(TEXT_SIZE * 2, '\0');
        mlist_base64_encode(ascii().c_str(), out.data(), static_cast<int>(out.size()));
        return std::string(out.c_str());
    }();
    return text;
}

/* A line of a mail, and of an encoded word. */
static const std::string &euc_line()
{
    static const std::string text = sample(Code::euc).substr(0, 80);
    return text;
}

static const std::string &sjis_line()
{
    static const std::string text = sample(Code::sjis).substr(0, 80);
    return text;
}

static const std::string &short_line()
{
    static const std::string text(45, 'x');
    return text;
}

static const std::string &base64_word()
{
    static const std::string text(60, 'Q');
    return text;
}

using Text = const std::string &();

/* Room for any result, half-width katakana among blanks grow most; touched before it counts. */
static std::vector<char> &room()
{
    static std::vector<char> memory(TEXT_SIZE * 4, 1);
    return memory;
}

static int room_size()
{
    return static_cast<int>(room().size()) - 16;
}

static void count_bytes(benchmark::State &state, size_t size)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

/* -- references -- */

static void copy_with_memcpy(benchmark::State &state)
{
    for (auto _ : state) {
        memcpy(room().data(), ascii().data(), ascii().size());
        benchmark::ClobberMemory();
    }
    count_bytes(state, ascii().size());
}

static void convert_with_iconv(benchmark::State &state, const char *from, const char *to, Text *of)
{
    iconv_t library = iconv_open(to, from);
    if (library == reinterpret_cast<iconv_t>(-1)) return state.SkipWithError("no such conversion");
    std::string text = of();
    for (auto _ : state) {
        char *in = text.data(), *out = room().data();
        size_t left = text.size(), size = room().size();
        iconv(library, nullptr, nullptr, nullptr, nullptr);
        if (iconv(library, &in, &left, &out, &size) == static_cast<size_t>(-1)) abort();
        benchmark::ClobberMemory();
    }
    iconv_close(library);
    count_bytes(state, text.size());
}

static double seconds_of_children()
{
    struct rusage usage;
    getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/* The program reads the text from memory and throws its output away; what counts is the processor
   time that it took, as for all others. */
static void run_base64_program(benchmark::State &state, const char *options, Text *of)
{
    const std::string &text = of();
    const int fd = memfd_create("bench", 0);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
    const std::string command = std::string("base64 ") + options + " /proc/" +
                                std::to_string(getpid()) + "/fd/" + std::to_string(fd) +
                                " > /dev/null";
    for (auto _ : state) {
        const double before = seconds_of_children();
        if (system(command.c_str()) != 0) {
            state.SkipWithError("no base64 program");
            break;
        }
        state.SetIterationTime(seconds_of_children() - before);
    }
    close(fd);
    count_bytes(state, text.size());
}

/* -- ours -- */

static void run_euc2jis(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    for (auto _ : state)
        if (euc2jis(text.c_str(), room().data(), room_size()) < 0) abort();
    count_bytes(state, text.size());
}

static void run_sjis2jis(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    for (auto _ : state)
        benchmark::DoNotOptimize(sjis2jis(text.c_str(), room().data(), room_size()));
    count_bytes(state, text.size());
}

/* The input is altered, but a second time gives the same at the same speed. */
static void run_jis2sjis(benchmark::State &state, Text *of)
{
    std::string text = of();
    for (auto _ : state)
        if (jis2sjis(text.data(), room().data(), room_size()) == nullptr) abort();
    count_bytes(state, text.size());
}

static void run_base64_encode(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    for (auto _ : state)
        if (mlist_base64_encode(text.c_str(), room().data(), room_size()) < 0) abort();
    count_bytes(state, text.size());
}

static void run_base64_decode(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    for (auto _ : state)
        if (mlist_base64_decode(text.c_str(), room().data()) < 0) abort();
    count_bytes(state, text.size());
}

static void run_base64_stream(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    const int in_fd = memfd_create("bench", MFD_CLOEXEC);
    if (write(in_fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
    FILE *null = fopen("/dev/null", "w");
    for (auto _ : state) {
        lseek(in_fd, 0, SEEK_SET);
        FileRecord *in = Fopen(in_fd), *out = Fopen(fileno(null));
        if (base64_encode_stream(in, out, 76) < 0) abort();
        Fclose(in);
        Fclose(out);
    }
    fclose(null);
    close(in_fd);
    count_bytes(state, text.size());
}

static void run_qp_decode(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    for (auto _ : state)
        if (quoted_printable_decode(text.c_str(), room().data()) < 0) abort();
    count_bytes(state, text.size());
}

static void run_qp_encode(benchmark::State &state, Text *of)
{
    const std::string &text = of();
    for (auto _ : state)
        if (mlist_quoted_printable_encode(text.c_str(), room().data(), 1000) < 0) abort();
    count_bytes(state, text.size());
}

/* -- the list -- */

#define ADD(run, name, ...) BENCHMARK_CAPTURE(run, name, __VA_ARGS__)->Unit(benchmark::kMillisecond)

BENCHMARK(copy_with_memcpy)->Unit(benchmark::kMillisecond);
ADD(run_euc2jis, japanese, euc_lines);
ADD(convert_with_iconv, euc_to_jis, "EUC-JP", "ISO-2022-JP", euc_lines);
ADD(run_euc2jis, katakana, euc_katakana);
ADD(convert_with_iconv, euc_to_jis_katakana, "EUC-JP", JIS_WITH_KATAKANA, euc_katakana);
ADD(run_euc2jis, ascii, ascii);
ADD(run_sjis2jis, japanese, sjis_lines);
ADD(convert_with_iconv, sjis_to_jis, "SHIFT_JIS", "ISO-2022-JP", sjis_lines);
ADD(run_sjis2jis, katakana, sjis_katakana);
ADD(convert_with_iconv, sjis_to_jis_katakana, "SHIFT_JIS", JIS_WITH_KATAKANA, sjis_katakana);
ADD(run_sjis2jis, ascii, ascii);
ADD(run_jis2sjis, japanese, jis_lines);
ADD(convert_with_iconv, jis_to_sjis, "ISO-2022-JP", "SHIFT_JIS", jis_lines);
ADD(run_jis2sjis, katakana, jis_katakana);
ADD(convert_with_iconv, jis_to_sjis_katakana, JIS_WITH_KATAKANA, "SHIFT_JIS", jis_katakana);
ADD(run_base64_encode, text, ascii);
ADD(run_base64_stream, text, ascii);
ADD(run_base64_program, encode, "", ascii)->UseManualTime();
ADD(run_base64_decode, text, base64_text);
ADD(run_base64_program, decode, "-d", base64_text)->UseManualTime();
ADD(run_qp_encode, text, ascii);
ADD(run_qp_decode, text, ascii);

/* nanoseconds: single lines */
BENCHMARK_CAPTURE(run_euc2jis, one_line, euc_line);
BENCHMARK_CAPTURE(run_sjis2jis, one_line, sjis_line);
BENCHMARK_CAPTURE(run_base64_encode, one_word, short_line);
BENCHMARK_CAPTURE(run_base64_decode, one_word, base64_word);
