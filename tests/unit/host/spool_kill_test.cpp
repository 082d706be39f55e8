/* SIGKILL at every call that changes something, or its failure, then a new start: a submission is
   wholly there or not at all, and no recipient is lost. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "host/mlistd/outbox/outbox.h"
#include "host/mlistd/spool/runner.h"
#include "tests/unit/host/queue_calls.h"
#include "tests/unit/host/queue_view.h"

namespace
{
using queue_test::Control;
using queue_test::Harm;
using Strings = std::vector<std::string>;

/* The process dies, not the machine: what a sync costs need not be paid. */
[[maybe_unused]] const bool in_memory =
    access("/dev/shm", W_OK) == 0 && setenv("TMPDIR", "/dev/shm", 0) == 0; /* before any case */

/* Runs the action in a child that dies at its nth changing call; false when it got to its end. */
bool killed_at(int nth, const std::function<void()> &action)
{
    const pid_t child = fork();
    if (child == 0) {
        const Control control(Harm::kill, nth);
        action();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status)) {
        EXPECT_EQ(0, WEXITSTATUS(status));
    } else
        EXPECT_EQ(SIGKILL, WTERMSIG(status));
    return WIFSIGNALED(status);
}

TEST(SpoolKill, ASubmissionIsWhollyThereOrNotAtAll)
{
    const std::string text(20'000, 'm');
    int nth = 1, there = 0, absent = 0;
    for (bool killed = true; killed; nth++) {
        const Scratch scratch;
        const std::string file = scratch.write("message", text);
        killed = killed_at(nth, [&] {
            auto spool = Spool::open(scratch.path("spool"));
            if (!spool || !(*spool)->submit(file, "s@x", Strings{"a@x", "b@x"}, "l@x")) _exit(9);
        });
        auto spool = Spool::open(scratch.path("spool"));
        ASSERT_TRUE(spool) << nth;
        EXPECT_EQ(Strings{}, names_in(scratch.path("spool/tmp"))) << nth;
        const auto id = (*spool)->take_due(std::chrono::milliseconds(0));
        EXPECT_EQ(id ? Strings{*id} : Strings{}, names_in(scratch.path("spool/out"))) << nth;
        if (!killed) {
            EXPECT_TRUE(id) << "submitted, then gone";
        }
        id ? there++ : absent++;
        if (!id) continue;
        const QueuedMail mail = read_queued((*spool)->path_of(*id));
        EXPECT_EQ((Strings{"a@x", "b@x"}), mail.todo) << nth;
        EXPECT_EQ(text, mail.message) << nth;
    }
    EXPECT_GE(there, 2);
    EXPECT_GE(absent, 8);
}

/* A few recipients at a time, so that there is something between the batches. */
class SmallBatches : public Outbox
{
  public:
    using Outbox::Outbox;
    size_t batch_size() const override { return 2; }
};

TEST(SpoolKill, DeliveryToTheOutboxIsFinishedByTheNextRunWithoutDoubles)
{
    const Strings recipients = {"a@x", "b@x", "c@x"};
    for (int nth = 1;; nth++) {
        const Scratch scratch;
        const std::string file = scratch.write("message", "Subject: s\r\n\r\nbody\r\n");
        {
            auto spool = Spool::open(scratch.path("spool"));
            ASSERT_TRUE(spool && (*spool)->submit(file, "s@x", recipients, "l@x"));
        }
        const auto run = [&] {
            auto spool = Spool::open(scratch.path("spool"));
            if (!spool) _exit(9);
            Runner runner(
                **spool,
                [&] { return std::make_unique<SmallBatches>(scratch.path("outbox"), "host"); }, {});
            runner.run_once();
        };
        const bool killed = killed_at(nth, run);
        run();
        for (const std::string &recipient : recipients) {
            const std::string box = scratch.path("outbox/" + recipient + "/new");
            const Strings mails = names_in(box);
            ASSERT_EQ(1u, mails.size()) << nth << " " << recipient;
            EXPECT_TRUE(read_file(box + "/" + mails[0]).ends_with("Subject: s\n\nbody\n")) << nth;
        }
        EXPECT_EQ(Strings{}, names_in(scratch.path("spool/out"))) << nth;
        EXPECT_EQ(Strings{}, names_in(scratch.path("outbox/.stage"))) << nth;
        if (!killed) {
            EXPECT_GT(nth, 30);
            break;
        }
    }
}
/* A relay that refuses one recipient for good, and keeps a list of who got mail, on disk: it is not
   killed with us. */
class Relay : public Transport
{
  public:
    explicit Relay(std::string taken) : taken_(std::move(taken)) {}
    bool deliver(const OutboundMessage &, const std::string &,
                 std::span<const std::string_view> recipients, std::span<Answer> answers) override
    {
        const Fd file(open(taken_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        for (size_t i = 0; i < recipients.size(); i++) {
            if (recipients[i] == "never@x") {
                answers[i] = {Answer::Kind::never, "550 no"};
                continue;
            }
            const std::string line = std::string(recipients[i]) + "\n";
            EXPECT_EQ(static_cast<ssize_t>(line.size()),
                      write(file.get(), line.data(), line.size()));
            answers[i] = {Answer::Kind::done, ""};
        }
        return true;
    }
    size_t batch_size() const override { return 2; }

  private:
    std::string taken_;
};

/* A submission to four, two at a time, one of whom is refused: the owner is told of that. */
class Relayed
{
  public:
    Relayed()
    {
        auto spool = Spool::open(scratch_.path("spool"));
        const std::string file = scratch_.write("message", "Subject: s\r\n\r\nbody\r\n");
        if (!spool ||
            !(*spool)->submit(file, "s@x", Strings{"a@x", "never@x", "b@x", "c@x"}, "l@x"))
            abort();
    }
    void run() const
    {
        auto spool = Spool::open(scratch_.path("spool"));
        if (!spool) return; /* a start that failed: the next one comes */
        (*spool)->retry_now();
        RunnerSettings settings;
        settings.bounce.owners_of = [](const std::string &) { return Strings{"boss@x"}; };
        Runner runner(
            **spool, [&] { return std::make_unique<Relay>(scratch_.path("taken")); }, settings);
        runner.run_once();
    }
    /* Undisturbed, until nothing is left. */
    void finish() const
    {
        for (int runs = 0; runs < 3 && !names_in(scratch_.path("spool/out")).empty(); runs++)
            run();
        EXPECT_EQ(Strings{}, names_in(scratch_.path("spool/out")));
        EXPECT_EQ(Strings{}, names_in(scratch_.path("spool/tmp")));
    }
    /* Everybody once at least; how many mails were one too many. */
    size_t expect_all_served() const
    {
        const std::string taken = read_file(scratch_.path("taken"));
        for (const char *recipient : {"a@x\n", "b@x\n", "c@x\n", "boss@x\n"})
            EXPECT_NE(taken.npos, taken.find(recipient)) << recipient << " got nothing";
        return static_cast<size_t>(std::count(taken.begin(), taken.end(), '\n')) - 4;
    }

  private:
    Scratch scratch_;
};

TEST(SpoolKill, ARelayedSubmissionIsFinishedAndOneBatchAtMostRepeated)
{
    size_t doubles = 0;
    int nth = 1;
    for (bool killed = true; killed; nth++) {
        const Relayed relayed;
        killed = killed_at(nth, [&] { relayed.run(); });
        relayed.run();
        relayed.finish();
        const size_t repeated = relayed.expect_all_served();
        EXPECT_LE(repeated, 2u) << nth;
        doubles += repeated;
    }
    EXPECT_GT(nth, 12);
    EXPECT_GE(doubles, 1u) << "a kill before the marks is not among them";
}

TEST(SpoolFault, ARelayedSubmissionIsFinishedAfterAnyFailure)
{
    for (const int error : {ENOSPC, EIO, EDQUOT, EMFILE, ENOMEM, EINTR}) {
        int nth = 1;
        for (bool failed = true; failed; nth++) {
            SCOPED_TRACE(std::string(strerror(error)) + " at call " + std::to_string(nth));
            const Relayed relayed;
            {
                const Control control(Harm::fail, nth, error);
                relayed.run();
                failed = control.happened();
            }
            relayed.run();
            relayed.finish();
            EXPECT_LE(relayed.expect_all_served(), 2u);
        }
        EXPECT_GT(nth, 12);
    }
}
} // namespace
