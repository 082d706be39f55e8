/* SIGKILL at every call that changes something, then a new start: a submission is wholly there or
   not at all, and no recipient is lost. */
#include <gtest/gtest.h>
#include <sys/wait.h>

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
} // namespace
