/* Postings through the whole daemon: LMTP in, module, queue, SMTP out to a sink that keeps nothing.
   Clients post to lists of ten members, each as fast as it is answered; beside them what as many
   threads get of bare durable files from the same place, measured before and after.

   MLIST_BENCH_DISK names the directory that is taken for the disk (default /tmp), /dev/shm is the
   memory.  Counters: postings/s until the last is answered; copies/s until the last copy is at the
   sink; cpu_us, processor time of mlistd a posting, sending included; durable/s; cost, durable
   files that a posting takes as long as. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "bench/machine.h"
#include "bench/mlistd_process.h"
#include "bench/smtp_sink.h"

static constexpr int MEMBERS = 10;

template <class Body> static void in_threads(int count, Body body)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < count; number++)
        threads.emplace_back([&body, number] { body(number); });
    for (std::thread &thread : threads)
        thread.join();
}

static double durable_files_a_second(const std::string &below, int threads, int files)
{
    const double start = seconds_now();
    in_threads(threads, [&](int number) {
        std::string directory = below + "/durable" + std::to_string(number) + "-XXXXXX";
        if (mkdtemp(directory.data()) == nullptr) abort();
        const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int file = 0; file < files / threads; file++)
            make_durable_file(directory, fd);
        close(fd);
    });
    return files / (seconds_now() - start);
}

static void post_all(const MlistdProcess &daemon, int clients, int lists, int postings)
{
    std::atomic<int> next{0};
    in_threads(clients, [&](int client) {
        LmtpConnection connection(daemon.socket_path());
        const std::string list = "list" + std::to_string(client % lists) + "@example.jp";
        for (int number; (number = next++) < postings;)
            connection.post(list, sample_mail(list, static_cast<uint64_t>(number)));
    });
}

static void lmtp(benchmark::State &state)
{
    const std::string place = directory_of(static_cast<int>(state.range(0)));
    const int clients = static_cast<int>(state.range(1)), lists = static_cast<int>(state.range(2));
    const int postings = state.range(0) == MEMORY ? 4000 : 400;
    const SmtpSink sink;
    const MlistdProcess daemon(place, lists, MEMBERS, sink.port());
    post_all(daemon, clients, lists, clients * 2); /* everything into memory */
    uint64_t copies = static_cast<uint64_t>(clients) * 2 * MEMBERS;
    for (auto _ : state) {
        if (!sink.wait_for(copies)) return state.SkipWithError("the copies did not come");
        double durable = durable_files_a_second(daemon.directory(), clients, postings);
        const double processor = daemon.processor_seconds(), start = seconds_now();
        post_all(daemon, clients, lists, postings);
        const double answered = seconds_now() - start;
        copies += static_cast<uint64_t>(postings) * MEMBERS;
        if (!sink.wait_for(copies)) return state.SkipWithError("the copies did not come");
        const double sent = seconds_now() - start;
        const double used = daemon.processor_seconds() - processor;
        durable = (durable + durable_files_a_second(daemon.directory(), clients, postings)) / 2;
        state.SetIterationTime(answered);
        state.counters["postings/s"] = postings / answered;
        state.counters["copies/s"] = postings * MEMBERS / sent;
        state.counters["cpu_us"] = used / postings * 1e6;
        state.counters["durable/s"] = durable;
        state.counters["cost"] = durable / (postings / answered);
    }
}

BENCHMARK(lmtp)
    ->ArgNames({"memory", "clients", "lists"})
    ->ArgsProduct({{DISK}, {1, 8}, {1}})
    ->Args({DISK, 8, 8})
    ->ArgsProduct({{MEMORY}, {1, 8}, {1}})
    ->Args({MEMORY, 8, 8})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
