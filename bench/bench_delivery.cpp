/* Postings of a 4 KiB mail, with archives and rosters of several sizes, on a disk and in memory,
   next to what the same place does for a file of that size: written, synced, renamed, its
   directory synced.  The two take turns, so that a noisy machine disturbs both alike, and what is
   shown are medians.

   MLIST_BENCH_DISK names the directory that is taken for the disk (default /tmp), /dev/shm is the
   memory.  Counters: postings/s; cpu_us, processor time of a posting; durable/s, the place's own
   durable files; cost, durable files that a posting takes as long as.  At the keep count a posting
   also removes the oldest message. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/delivery_list.h"

enum Place { DISK, MEMORY };

static std::string directory_of(int place)
{
    const char *disk = getenv("MLIST_BENCH_DISK");
    return place == MEMORY ? "/dev/shm" : disk != nullptr ? disk : "/tmp";
}

static double seconds_now()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

static double processor_seconds()
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/* -- the machine -- */

static void make_durable_file(const std::string &directory, int directory_fd)
{
    static const std::string block(4096, 'x');
    const std::string name = directory + "/durable";
    const int fd = open((name + ".new").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || write(fd, block.data(), block.size()) != 4096 || fsync(fd) != 0) exit(1);
    close(fd);
    if (rename((name + ".new").c_str(), name.c_str()) != 0 || fsync(directory_fd) != 0) exit(1);
}

static void syncfs_of(const std::string &directory)
{
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    (void)syncfs(fd); /* or the postings pay for what made their list */
    close(fd);
}

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
    syncfs_of(bench.directory->path());
}

static double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

static void post(benchmark::State &state)
{
    prepare(static_cast<int>(state.range(0)), state.range(1), state.range(2), state.range(3) != 0);
    const std::string directory = bench.directory->path();
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::vector<double> postings, processor, durable;
    for (auto _ : state) {
        const double start = seconds_now(), processor_start = processor_seconds();
        bench.list->post();
        processor.push_back(processor_seconds() - processor_start);
        const double posted = seconds_now();
        postings.push_back(posted - start);
        state.SetIterationTime(posted - start);
        make_durable_file(directory, fd);
        durable.push_back(seconds_now() - posted);
    }
    close(fd);
    state.counters["postings/s"] = 1 / median(postings);
    state.counters["cpu_us"] = median(processor) * 1e6;
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
