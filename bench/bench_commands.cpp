/* Commands by mail, next to durable files of the same place made in the same run
   (bench_delivery.cpp says how to read the figures).  Replies are composed, synced and discarded.

   join_and_leave   one mail, "# unsubscribe" and "# subscribe": six durable rewrites
   off_and_on       one mail, "# off" and "# on": four
   summary          lines for 10,000 messages
   get              1,000 messages of 4 KiB in one reply
   get_large        one message of 50 MiB; peak_MiB is what the process grew by meanwhile */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "bench/delivery_list.h"
#include "bench/machine.h"

static void run(benchmark::State &state, DeliveryList &list, const std::string &directory,
                const std::string &lines, double commands)
{
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::vector<double> times, processor, durable;
    const long peak = peak_kilobytes();
    for (auto _ : state) {
        const double start = seconds_now(), processor_start = processor_seconds();
        list.command(lines);
        processor.push_back(processor_seconds() - processor_start);
        const double done = seconds_now();
        times.push_back(done - start);
        state.SetIterationTime(done - start);
        make_durable_file(directory, fd);
        durable.push_back(seconds_now() - done);
    }
    close(fd);
    state.counters["commands/s"] = commands / median(times);
    state.counters["cpu_us"] = median(processor) * 1e6 / commands;
    state.counters["cost"] = median(times) / commands / median(durable);
    state.counters["peak_MiB"] = static_cast<double>(peak_kilobytes() - peak) / 1024;
}

static void over_roster(benchmark::State &state, const std::string &lines)
{
    const WorkDirectory directory(directory_of(static_cast<int>(state.range(0))));
    DeliveryList list(directory.path());
    list.make_archive(1);
    list.set_keep(1000);
    list.make_roster(static_cast<uint32_t>(state.range(1)));
    sync_file_system(directory.path());
    run(state, list, directory.path(), lines, 2);
}

static void join_and_leave(benchmark::State &state)
{
    over_roster(state, "# unsubscribe\r\n# subscribe\r\n");
}

static void off_and_on(benchmark::State &state)
{
    over_roster(state, "# off\r\n# on\r\n");
}

static void over_archive(benchmark::State &state, uint32_t messages, size_t large,
                         const std::string &lines)
{
    const WorkDirectory directory(directory_of(static_cast<int>(state.range(0))));
    DeliveryList list(directory.path());
    list.make_archive(messages);
    list.set_keep(1000000);
    if (large > 0) list.make_large(1, large);
    sync_file_system(directory.path());
    run(state, list, directory.path(), lines, 1);
}

static void summary(benchmark::State &state)
{
    over_archive(state, 10000, 0, "# summary all\r\n");
}

static void get(benchmark::State &state)
{
    over_archive(state, 1000, 0, "# get 1-1000\r\n");
}

static void get_large(benchmark::State &state)
{
    over_archive(state, 1, 50u << 20, "# get 1\r\n");
}

#define COMMON UseManualTime()->Unit(benchmark::kMicrosecond)->ArgNames({"memory", "members"})
BENCHMARK(get_large)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->ArgName("memory")
    ->Arg(DISK)
    ->Iterations(3);
BENCHMARK(join_and_leave)->ArgsProduct({{DISK, MEMORY}, {10, 100000}})->Iterations(40)->COMMON;
BENCHMARK(off_and_on)->ArgsProduct({{DISK, MEMORY}, {10, 100000}})->Iterations(40)->COMMON;
BENCHMARK(summary)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->ArgName("memory")
    ->Arg(DISK)
    ->Iterations(5);
BENCHMARK(get)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->ArgName("memory")
    ->Arg(DISK)
    ->Iterations(5);
