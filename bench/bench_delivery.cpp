/* Postings of a 4 KiB mail, with archives and rosters of several sizes, on a disk and in memory,
   next to what the same place does for a file of that size (written, synced, renamed, its directory
   synced) and to the same writes and syncs made bare.  All take turns, so that a noisy machine
   disturbs them alike, and what is shown are medians.

   MLIST_BENCH_DISK names the directory that is taken for the disk (default /tmp), /dev/shm is the
   memory.  Counters: postings/s; cpu_us, processor time of a posting, user_us the part that is not
   the kernel's; bare_us, processor time of the same writes bare, the index read twice and written
   three times among them; x_bare, how many of those cpu_us is; roster_us, what
   reading the roster and a memchr() for every line take; durable/s, the place's own durable files;
   cost, durable files that a posting takes as long as.  At the keep count a posting also removes
   the oldest message. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/bare_posting.h"
#include "bench/delivery_list.h"
#include "bench/machine.h"

/* -- postings -- */

/* The list of the last benchmark: a large archive is made once for several of them. */
struct Bench {
    int place = -1;
    int64_t messages = -1;
    std::unique_ptr<WorkDirectory> directory;
    std::unique_ptr<DeliveryList> list;
};
static Bench bench;

static void prepare(int place, int64_t messages, int64_t members, bool at_keep)
{
    if (bench.place != place || bench.messages != messages || messages == 0) {
        bench.list.reset();
        bench.directory = std::make_unique<WorkDirectory>(directory_of(place));
        bench.list = std::make_unique<DeliveryList>(bench.directory->path());
        bench.list->make_archive(static_cast<uint32_t>(messages));
        bench.place = place;
        bench.messages = messages;
    }
    bench.list->make_roster(static_cast<uint32_t>(members));
    bench.list->set_keep(at_keep ? static_cast<uint32_t>(messages) : 1000000000);
    bench.list->post(); /* brings the archive to the keep count, and everything into memory */
    sync_file_system(bench.directory->path());
}

static void post(benchmark::State &state)
{
    prepare(static_cast<int>(state.range(0)), state.range(1), state.range(2), state.range(3) != 0);
    const std::string directory = bench.directory->path();
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    BarePosting bare(directory + "/bare", 16 * (static_cast<size_t>(state.range(1)) + 1));
    std::vector<double> postings, processor, durable, bare_processor, roster;
    double user = 0;
    for (auto _ : state) {
        const double start = seconds_now(), user_start = user_seconds();
        const double processor_start = processor_seconds();
        bench.list->post();
        processor.push_back(processor_seconds() - processor_start);
        user += user_seconds() - user_start;
        const double posted = seconds_now();
        postings.push_back(posted - start);
        state.SetIterationTime(posted - start);
        make_durable_file(directory, fd);
        durable.push_back(seconds_now() - posted);
        const double bare_start = processor_seconds();
        bare.post(state.range(3) != 0);
        const double bare_end = processor_seconds();
        bare_processor.push_back(bare_end - bare_start);
        benchmark::DoNotOptimize(bare_lines(bench.list->roster()));
        roster.push_back(processor_seconds() - bare_end);
    }
    close(fd);
    std::filesystem::remove_all(directory + "/bare");
    state.counters["postings/s"] = 1 / median(postings);
    state.counters["cpu_us"] = median(processor) * 1e6;
    state.counters["user_us"] = user * 1e6 / static_cast<double>(postings.size());
    state.counters["bare_us"] = median(bare_processor) * 1e6;
    state.counters["roster_us"] = median(roster) * 1e6;
    state.counters["x_bare"] = median(processor) / median(bare_processor);
    state.counters["durable/s"] = 1 / median(durable);
    state.counters["cost"] = median(postings) / median(durable);
}

static void all_sizes(benchmark::internal::Benchmark *b)
{
    for (const int place : {DISK, MEMORY})
        for (const int messages : {0, 1000, 100000})
            for (const int at_keep : {0, 1})
                for (const int members : {10, 1000, 100000})
                    if (messages > 0 || !at_keep) b->Args({place, messages, members, at_keep});
}

BENCHMARK(post)
    ->ArgNames({"memory", "messages", "members", "at_keep"})
    ->Apply(all_sizes)
    ->Iterations(100)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
