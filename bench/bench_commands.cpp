/* Commands by mail, next to durable files of the same place made in the same run
   (bench_delivery.cpp says how to read the figures).  Replies are composed, synced and discarded.

   join_and_leave   one mail, "# unsubscribe" and "# subscribe": six durable rewrites
   off_and_on       one mail, "# off" and "# on": four
   summary          lines for 10,000 messages
   get              1,000 messages of 4 KiB in one reply
   get_large        one message of 50 MiB; peak_MiB is what the process grew by meanwhile

   Beside each: bare_us, processor time of two durable rewrites made bare, of files as large as the
   roster and "active" are; x_bare and x_bare_cpu, how many of those a command is. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "bench/bare_posting.h"
#include "bench/delivery_list.h"
#include "bench/machine.h"

/* The durable rewrites that a command needs, made bare: the roster's, and that of the list of those
   who get every posting. */
class BareCommand
{
  public:
    BareCommand(const std::string &directory, const DeliveryList &list)
        : roster_(made(directory + "/bare.roster"), std::filesystem::file_size(list.roster())),
          active_(made(directory + "/bare.active"), std::filesystem::file_size(list.active()))
    {
    }
    void make()
    {
        roster_.rewrite();
        active_.rewrite();
    }

  private:
    static std::string made(const std::string &directory)
    {
        std::filesystem::create_directory(directory);
        return directory;
    }
    BareRewrite roster_, active_;
};

static void run(benchmark::State &state, DeliveryList &list, const std::string &directory,
                const std::string &lines, double commands)
{
    BareCommand bare(directory, list);
    std::vector<double> bare_processor, bare_times;
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
        const double bare_start = seconds_now(), bare_processor_start = processor_seconds();
        durable.push_back(bare_start - done);
        bare.make();
        bare_processor.push_back(processor_seconds() - bare_processor_start);
        bare_times.push_back(seconds_now() - bare_start);
    }
    close(fd);
    state.counters["commands/s"] = commands / median(times);
    state.counters["cpu_us"] = median(processor) * 1e6 / commands;
    state.counters["bare_us"] = median(bare_processor) * 1e6;
    state.counters["x_bare_cpu"] = median(processor) / commands / median(bare_processor);
    state.counters["x_bare"] = median(times) / commands / median(bare_times);
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
