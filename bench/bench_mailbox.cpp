/* FETCH and SEARCH over an archive of 10,000 generated mails, next to what the machine does with
   the same mails: copied in memory, read file by file, converted by iconv.  Rates are messages per
   second of processor time; text goes to a sink that discards it. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <iconv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/generate_archive.h"
#include "mlist/mlist.h"

static constexpr uint32_t MESSAGES = 10000;

struct Mailbox10k {
    GeneratedArchive archive{MESSAGES, 20261115};
    MailboxHandle *handle = list_mbx_open(archive.path().c_str(), MAILBOX_QUIET);
    std::string all; /* one mail after the other */
    uint32_t largest = 0;

    Mailbox10k()
    {
        if (handle == nullptr) abort();
        for (const uint32_t size : archive.sizes())
            largest = size > largest ? size : largest;
        std::string block(largest, '\0');
        for (uint32_t uid = 1; uid <= MESSAGES; ++uid)
            all.append(block, 0, read_message(uid, block.data()));
    }
    ~Mailbox10k() { list_mbx_close(handle); }
    Mailbox10k(const Mailbox10k &) = delete;
    Mailbox10k &operator=(const Mailbox10k &) = delete;

    size_t read_message(uint32_t uid, char *to) const
    {
        const int fd = open(archive.message_file(uid).c_str(), O_RDONLY | O_CLOEXEC);
        const ssize_t got = read(fd, to, largest);
        close(fd);
        if (got < 0) abort();
        return static_cast<size_t>(got);
    }
};

static std::unique_ptr<Mailbox10k> box;

static void report(benchmark::State &state)
{
    const int64_t runs = static_cast<int64_t>(state.iterations());
    state.SetItemsProcessed(runs * MESSAGES);
    state.SetBytesProcessed(runs * static_cast<int64_t>(box->all.size()));
}

/* -- the machine -- */

static void machine_memcpy(benchmark::State &state)
{
    std::vector<char> to(box->all.size());
    for (auto _ : state) {
        memcpy(to.data(), box->all.data(), to.size());
        benchmark::ClobberMemory();
    }
    report(state);
}
BENCHMARK(machine_memcpy);

static void machine_open_and_read(benchmark::State &state)
{
    std::vector<char> to(box->largest);
    for (auto _ : state)
        for (uint32_t uid = 1; uid <= MESSAGES; ++uid)
            benchmark::DoNotOptimize(box->read_message(uid, to.data()));
    report(state);
}
BENCHMARK(machine_open_and_read);

static void machine_iconv(benchmark::State &state)
{
    iconv_t converter = iconv_open("EUC-JP", "ISO-2022-JP");
    if (converter == reinterpret_cast<iconv_t>(-1)) return state.SkipWithError("no iconv");
    std::vector<char> to(box->all.size() * 2);
    for (auto _ : state) {
        char *in = box->all.data(), *out = to.data();
        size_t in_left = box->all.size(), out_left = to.size();
        benchmark::DoNotOptimize(iconv(converter, &in, &in_left, &out, &out_left));
        if (in_left != 0) state.SkipWithError("a mail that iconv cannot convert");
    }
    iconv_close(converter);
    report(state);
}
BENCHMARK(machine_iconv);

/* -- FETCH -- */

static void fetch(benchmark::State &state, const char *item)
{
    std::string text = item;
    char *items[] = {text.data(), nullptr};
    for (auto _ : state)
        for (uint32_t s = 1; s <= MESSAGES; ++s)
            mlmbx_fetch(box->handle, static_cast<int>(s), items);
    report(state);
}
BENCHMARK_CAPTURE(fetch, FLAGS, "FLAGS");
BENCHMARK_CAPTURE(fetch, ENVELOPE, "ENVELOPE");
BENCHMARK_CAPTURE(fetch, BODYSTRUCTURE, "BODYSTRUCTURE");
BENCHMARK_CAPTURE(fetch, BODY, "BODY.PEEK[]");

/* -- SEARCH, for what no mail has: all of every one is looked at -- */

static void search(benchmark::State &state, const char *criteria)
{
    for (auto _ : state)
        if (mlmbx_search(box->handle, criteria, "euc-jp", 0) != 1) abort();
    report(state);
}
BENCHMARK_CAPTURE(search, SUBJECT, "SUBJECT \xc2\xb8\xba\xdf\xa4\xb7\xa4\xca\xa4\xa4");
BENCHMARK_CAPTURE(search, TEXT, "TEXT \xc2\xb8\xba\xdf\xa4\xb7\xa4\xca\xa4\xa4");

int main(int argc, char **argv)
{
    static const cookie_io_functions_t discard = {
        nullptr, [](void *, const char *, size_t size) { return static_cast<ssize_t>(size); },
        nullptr, nullptr};
    FILE *nowhere = fopencookie(nullptr, "w", discard);
    benchmark::Initialize(&argc, argv);
    mlist_set_output(nowhere);
    box = std::make_unique<Mailbox10k>();
    benchmark::RunSpecifiedBenchmarks();
    box.reset();
    mlist_set_output(nullptr);
    return fclose(nowhere);
}
