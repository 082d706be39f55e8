/* Usage: peers_load DIRECTORY - the same postings through mlistd and through mlmmj, to one sink.

   The same 4 KiB mails for the same members, from 1 and from 8 senders at a time.  mlistd gets them
   by LMTP; mlmmj as its manual says, a mlmmj-receive for each mail with the mail on stdin, which
   answers when it has stored the mail and goes on in the background.  Both hand the copies to the
   sink by SMTP, mlmmj in both its ways: one mail for each member, which it does by default, and one
   for all (its tunable "verp", empty).  Rates are until the last copy is there; CPU is that of
   all processes of the system under load, not of senders and sink. */
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/machine.h"
#include "bench/mlistd_process.h"
#include "bench/smtp_sink.h"

namespace fs = std::filesystem;

static const std::string list_address = "list0@example.jp";
static constexpr int POSTINGS = 400;

struct Measured {
    double postings_a_second, processor_seconds;
};

/* Something that posts: as the sender of that number, the mail of that number. */
using Post = std::function<void(int sender, uint64_t number)>;

static double run_load(int senders, const Post &post, const SmtpSink &sink, int members)
{
    const uint64_t wanted =
        sink.copies() + static_cast<uint64_t>(POSTINGS) * static_cast<uint64_t>(members);
    std::atomic<uint64_t> next{0};
    std::vector<std::thread> threads;
    const double start = seconds_now();
    for (int sender = 0; sender < senders; sender++)
        threads.emplace_back([&, sender] {
            for (uint64_t number; (number = next++) < POSTINGS;)
                post(sender, number);
        });
    for (std::thread &thread : threads)
        thread.join();
    if (!sink.wait_for(wanted)) {
        fprintf(stderr, "peers_load: copies are missing\n");
        exit(1);
    }
    return POSTINGS / (seconds_now() - start);
}

/* -- mlistd -- */

static Measured measure_mlistd(const std::string &below, int members, int senders)
{
    const SmtpSink sink;
    const MlistdProcess daemon(below, 1, members, sink.port());
    std::vector<std::unique_ptr<LmtpConnection>> connections;
    for (int sender = 0; sender < senders; sender++)
        connections.push_back(std::make_unique<LmtpConnection>(daemon.socket_path()));
    const double before = daemon.processor_seconds();
    const double rate = run_load(
        senders,
        [&](int sender, uint64_t number) {
            connections[static_cast<size_t>(sender)]->post(list_address,
                                                           sample_mail(list_address, number));
        },
        sink, members);
    return {rate, daemon.processor_seconds() - before};
}

/* -- mlmmj -- */

static void write_text(const fs::path &path, const std::string &text)
{
    FILE *file = fopen(path.c_str(), "we");
    if (file == nullptr || fwrite(text.data(), 1, text.size(), file) != text.size() ||
        fclose(file) != 0)
        abort();
}

/* What its mlmmj-make-ml makes, and where to send to. */
static void make_list(const fs::path &list, int members, uint16_t relay_port, bool one_for_all)
{
    for (const char *name :
         {"incoming", "queue/discarded", "archive", "text", "subconf", "unsubconf", "bounce",
          "control", "moderation", "subscribers.d", "digesters.d", "requeue", "nomailsubs.d"})
        fs::create_directories(list / name);
    write_text(list / "index", "");
    write_text(list / "control/listaddress", list_address + "\n");
    write_text(list / "control/owner", "postmaster@example.jp\n");
    write_text(list / "control/relayhost", "127.0.0.1\n");
    write_text(list / "control/smtpport", std::to_string(relay_port) + "\n");
    if (one_for_all) write_text(list / "control/verp", "\n");
    std::string subscribers;
    for (int number = 0; number < members; number++)
        subscribers += sample_member(number) + "\n";
    write_text(list / "subscribers.d/m", subscribers);
}

/* What a mail server's pipe makes of a mail: the sender in front, and the system's line ends. */
static std::string as_piped(const std::string &mail)
{
    std::string text = "Return-Path: <" + sample_member(0) + ">\n";
    for (const char c : mail)
        if (c != '\r') text += c;
    return text;
}

/* As a mail server's pipe does: returns when the program has taken the mail. */
static void pipe_to_receive(const std::string &list, const std::string &mail_file)
{
    const char *const arguments[] = {"/usr/bin/mlmmj-receive", "-L", list.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, mail_file.c_str(), O_RDONLY, 0);
    pid_t process;
    int status = 0;
    if (posix_spawn(&process, arguments[0], &actions, nullptr, const_cast<char **>(arguments),
                    environ) != 0 ||
        waitpid(process, &status, 0) != process || status != 0)
        abort();
    posix_spawn_file_actions_destroy(&actions);
}

static double processor_seconds_of_children()
{
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    struct rusage usage;
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

static Measured measure_mlmmj(const std::string &below, int members, int senders, bool one_for_all)
{
    const SmtpSink sink;
    std::string directory = below + "/mlist-peer-XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) abort();
    const std::string list = directory + "/list";
    make_list(list, members, sink.port(), one_for_all);
    for (uint64_t number = 0; number < POSTINGS; number++)
        write_text(directory + "/mail" + std::to_string(number),
                   as_piped(sample_mail(list_address, number)));
    const double before = processor_seconds_of_children();
    const double rate = run_load(
        senders,
        [&](int, uint64_t number) {
            pipe_to_receive(list, directory + "/mail" + std::to_string(number));
        },
        sink, members);
    const double used = processor_seconds_of_children() - before;
    fs::remove_all(directory);
    return {rate, used};
}

/* -- both -- */

static void show(const char *what, const Measured &measured, const Measured &first)
{
    const double cpu = measured.processor_seconds / POSTINGS * 1e6;
    printf("  %-30s %8.1f postings/s %9.0f us CPU each   %5.2f x the rate, %6.1f x the CPU\n", what,
           measured.postings_a_second, cpu, measured.postings_a_second / first.postings_a_second,
           measured.processor_seconds / first.processor_seconds);
    fflush(stdout);
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fputs("Usage: peers_load DIRECTORY\n", stderr);
        return 2;
    }
    const std::string below = argv[1];
    prctl(PR_SET_CHILD_SUBREAPER, 1); /* what mlmmj leaves in the background is ours to count */
    for (const int members : {10, 100})
        for (const int senders : {1, 8}) {
            printf("%s: %d postings to %d members, %d at a time\n", below.c_str(), POSTINGS,
                   members, senders);
            const Measured ours = measure_mlistd(below, members, senders);
            show("mlistd", ours, ours);
            show("mlmmj, one mail for all", measure_mlmmj(below, members, senders, true), ours);
            show("mlmmj, a mail for each", measure_mlmmj(below, members, senders, false), ours);
        }
    return 0;
}
