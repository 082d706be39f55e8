/* The workers: what they make of answers, of failures, of a way out that is shut. */
#include "host/mlistd/spool/runner.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <thread>

#include "tests/unit/host/queue_calls.h"
#include "tests/unit/host/queue_view.h"

namespace
{
using queue_test::Control;
using queue_test::Harm;
using Strings = std::vector<std::string>;
using Kind = Answer::Kind;

constexpr time_t START = 1'700'000'000;

/* A way out that does as it is told and remembers what it was given. */
struct Script {
    std::map<std::string, std::deque<Answer>> answers; /* by address; none left: done */
    bool shut = false;
    size_t batch = 500;
    struct Seen {
        std::string recipient, sender, text;
    };
    std::vector<Seen> seen;

    Strings recipients() const
    {
        Strings all;
        for (const Seen &one : seen)
            all.push_back(one.recipient);
        return all;
    }
};

class Scripted : public Transport
{
  public:
    explicit Scripted(Script &script) : script_(script) {}
    bool deliver(const OutboundMessage &message, const std::string &sender,
                 std::span<const std::string_view> recipients, std::span<Answer> answers) override
    {
        std::string text;
        EXPECT_EQ(0, visit_message(message, [&](std::string_view piece) {
                      text += piece;
                      return true;
                  }));
        for (size_t i = 0; i < recipients.size(); i++) {
            if (script_.shut) {
                answers[i] = {Kind::later, "nobody answers"};
                continue;
            }
            const std::string recipient(recipients[i]);
            script_.seen.push_back({recipient, sender, text});
            auto &left = script_.answers[recipient];
            answers[i] = {Kind::done, ""};
            if (left.empty()) continue;
            answers[i] = left.front();
            left.pop_front();
        }
        return !script_.shut;
    }
    size_t batch_size() const override { return script_.batch; }

  private:
    Script &script_;
};

class RunnerTest : public testing::Test
{
  protected:
    RunnerTest()
    {
        queue_test::clock_at = START;
        settings_.log = [this](int level, const std::string &text) {
            log_.push_back(std::to_string(level) + " " + text);
        };
        runner_settings_.bounce.hostname = "mail.example.jp";
        runner_settings_.bounce.owners_of = [this](const std::string &list) {
            EXPECT_EQ("alpha@example.jp", list);
            return owners_;
        };
        open();
    }

    void open()
    {
        runner_.reset();
        spool_.reset();
        auto spool = Spool::open(scratch_.path("spool"), settings_);
        ASSERT_TRUE(spool) << spool.error().text;
        spool_ = std::move(*spool);
        runner_ = std::make_unique<Runner>(
            *spool_, [this] { return std::make_unique<Scripted>(script_); }, runner_settings_);
    }

    std::string submit(const Strings &recipients,
                       const std::string &sender = "owner-alpha@example.jp")
    {
        const auto id = spool_->submit(scratch_.write("message", text_), sender, recipients,
                                       "alpha@example.jp");
        EXPECT_TRUE(id);
        return id ? *id : "";
    }
    Strings queued() const { return names_in(scratch_.path("spool/out")); }
    void wait(time_t seconds) { queue_test::clock_at += seconds; }

    Scratch scratch_;
    const Control control_;
    SpoolSettings settings_;
    RunnerSettings runner_settings_;
    Strings log_, owners_ = {"boss@example.jp", "vice@example.jp"};
    Script script_;
    std::string text_ = "Date: x\r\nMessage-ID: <1@x>\r\nSubject: s\r\n\r\nbody\r\n";
    std::unique_ptr<Spool> spool_;
    std::unique_ptr<Runner> runner_;
};

TEST_F(RunnerTest, EveryoneGetsTheMailAndTheQueueIsEmpty)
{
    const std::string id = submit({"a@x", "b@x"});
    EXPECT_EQ(1u, runner_->run_once());
    ASSERT_EQ((Strings{"a@x", "b@x"}), script_.recipients());
    EXPECT_EQ(text_, script_.seen[0].text);
    EXPECT_EQ("owner-alpha@example.jp", script_.seen[0].sender);
    EXPECT_EQ(Strings{}, queued());
    EXPECT_EQ(Strings{"5 mlname=alpha@example.jp " + id + " sent"}, log_);
    EXPECT_EQ(0u, spool_->count().waiting + spool_->count().active);
}

TEST_F(RunnerTest, OnlyThoseWhoHaveNotGotItAreTriedAgain)
{
    script_.answers["b@x"] = {{Kind::later, "450 busy"}, {Kind::later, "450 busy"}};
    const std::string id = submit({"a@x", "b@x", "c@x"});
    EXPECT_EQ(1u, runner_->run_once());
    const QueuedMail mail = read_queued(spool_->path_of(id));
    EXPECT_EQ(Strings{"b@x"}, mail.todo);
    EXPECT_EQ((Strings{"a@x", "c@x"}), mail.done);
    EXPECT_EQ(Strings{"3 mlname=alpha@example.jp " + id + " 2 done, 1 later: 450 busy"}, log_);
    EXPECT_EQ(0u, runner_->run_once()) << "not due yet";
    wait(60);
    EXPECT_EQ(1u, runner_->run_once());
    wait(60);
    EXPECT_EQ(1u, runner_->run_once());
    EXPECT_EQ((Strings{"a@x", "b@x", "c@x", "b@x", "b@x"}), script_.recipients());
    EXPECT_EQ(Strings{}, queued());
}

TEST_F(RunnerTest, RefusedRecipientsAreToldToTheOwners)
{
    script_.answers["b@x"] = {{Kind::never, "550 5.1.1 no such\r\nuser"}};
    const std::string id = submit({"a@x", "b@x"});
    EXPECT_EQ(2u, runner_->run_once()) << "the notice goes out in the same run";
    EXPECT_EQ((Strings{"a@x", "b@x", "boss@example.jp", "vice@example.jp"}), script_.recipients());
    EXPECT_EQ("", script_.seen[2].sender);
    const std::string &notice = script_.seen[2].text;
    for (const char *line :
         {"From: Mail Delivery System <MAILER-DAEMON@mail.example.jp>\r\n",
          "To: boss@example.jp,\r\n vice@example.jp\r\n", "Auto-Submitted: auto-replied\r\n",
          "Subject: Undelivered mail of alpha@example.jp\r\n",
          "\r\nReporting-MTA: dns; mail.example.jp\r\n",
          "\r\n\r\nFinal-Recipient: rfc822; b@x\r\nAction: failed\r\nStatus: 5.1.1\r\n"
          "Diagnostic-Code: smtp; 550 5.1.1 no such\r\n",
          "\r\nContent-Type: text/rfc822-headers\r\n", "\r\nSubject: s\r\n"})
        EXPECT_NE(notice.npos, notice.find(line)) << line << "in\n" << notice;
    EXPECT_EQ(notice.npos, notice.find("body")) << "the header only";
    EXPECT_EQ(notice.npos, notice.find("\ruser"));
    EXPECT_EQ(Strings{}, queued());
    EXPECT_EQ(Strings{}, names_in(scratch_.path("spool/tmp")));
    EXPECT_EQ("3 mlname=alpha@example.jp 1 recipients failed, owners told: " + id, log_[0]);
}

TEST_F(RunnerTest, WithoutOwnersTheSenderIsTold)
{
    owners_ = {};
    script_.answers["b@x"] = {{Kind::never, "550 no"}};
    submit({"b@x"});
    runner_->run_once();
    EXPECT_EQ((Strings{"b@x", "owner-alpha@example.jp"}), script_.recipients());
}

TEST_F(RunnerTest, ABounceIsNeverBounced)
{
    script_.answers["b@x"] = {{Kind::never, "550 no"}};
    const std::string id = submit({"b@x"}, "");
    EXPECT_EQ(1u, runner_->run_once());
    EXPECT_EQ(Strings{"b@x"}, script_.recipients());
    EXPECT_EQ(Strings{}, queued());
    EXPECT_EQ("1 mlname=alpha@example.jp a bounce cannot be delivered, given up: " + id, log_[0]);
}

TEST_F(RunnerTest, TooOldAMailBouncesAfterALastTry)
{
    script_.answers["b@x"] = {{Kind::later, "450 4.2.2 full"}, {Kind::later, "450 4.2.2 full"}};
    submit({"a@x", "b@x"});
    runner_->run_once();
    wait(settings_.maximum_age + 1);
    EXPECT_EQ(2u, runner_->run_once());
    EXPECT_EQ((Strings{"a@x", "b@x", "b@x", "boss@example.jp", "vice@example.jp"}),
              script_.recipients());
    const std::string &notice = script_.seen[3].text;
    EXPECT_NE(notice.npos, notice.find("Status: 5.2.2\r\nDiagnostic-Code: smtp; too long in the "
                                       "queue; last: 450 4.2.2 full\r\n"))
        << notice;
    EXPECT_EQ(Strings{}, queued());
}

TEST_F(RunnerTest, TooOldAMailBouncesEvenWhenTheWayOutIsShut)
{
    script_.batch = 2;
    submit({"a@x", "b@x", "c@x"});
    wait(settings_.maximum_age + 1);
    script_.shut = true;
    runner_->run_once();
    script_.shut = false;
    wait(60);
    runner_->run_once();
    ASSERT_EQ((Strings{"boss@example.jp", "vice@example.jp"}), script_.recipients());
    for (const char *who : {"; a@x\r\n", "; b@x\r\n", "; c@x\r\n"})
        EXPECT_NE(std::string::npos, script_.seen[0].text.find(who)) << who;
}

TEST_F(RunnerTest, AShutWayOutCostsOneTryAndIsTriedAgainSoon)
{
    script_.batch = 1;
    script_.shut = true;
    const std::string id = submit({"a@x", "b@x"});
    wait(7200); /* an old mail waits no longer than a new one for the relay to come back */
    EXPECT_EQ(1u, runner_->run_once());
    EXPECT_EQ("3 mlname=alpha@example.jp " + id + " 0 done, 2 later: nobody answers", log_[0]);
    script_.shut = false;
    wait(60);
    EXPECT_EQ(1u, runner_->run_once());
    EXPECT_EQ((Strings{"a@x", "b@x"}), script_.recipients());
}

TEST_F(RunnerTest, MissingHeaderLinesStandInFrontOnTheWayOutOnly)
{
    text_ = "Subject: s\r\n\r\nDate: of the body\r\n";
    const std::string id = submit({"a@x"});
    runner_->run_once();
    const std::string &sent = script_.seen[0].text;
    EXPECT_TRUE(sent.starts_with("Date: ")) << sent;
    EXPECT_TRUE(sent.ends_with("\r\nMessage-ID: <" + id + ".mlist@example.jp>\r\n" + text_))
        << sent;
}

TEST_F(RunnerTest, DamagedSubmissionsAreSetAsideForTheOperator)
{
    const std::string id = submit({"a@x"});
    scratch_.write("spool/out/" + id, "scribble");
    runner_->run_once();
    EXPECT_EQ(Strings{id + ".bad"}, queued());
    ASSERT_EQ(1u, log_.size());
    EXPECT_EQ("1 " + spool_->path_of(id) + ": not a whole submission", log_[0]);
    open();
    EXPECT_EQ(0u, runner_->run_once());
}

TEST_F(RunnerTest, ARecipientWhoseMarkIsDamagedIsLeftToTheOperator)
{
    const std::string id = submit({"a@x", "b@x", "c@x"});
    std::string text = read_file(spool_->path_of(id));
    text.replace(text.find("Tb@x"), 1, "\xD4");
    scratch_.write("spool/out/" + id, text);
    runner_->run_once();
    EXPECT_EQ((Strings{"a@x", "c@x"}), script_.recipients());
    EXPECT_EQ(Strings{id + ".bad"}, queued());
    EXPECT_EQ("1 " + spool_->path_of(id) + ": a recipient without a mark", log_.back());
}

TEST_F(RunnerTest, ASubmissionThatAnOperatorRemovedIsForgotten)
{
    const std::string id = submit({"a@x"});
    ASSERT_EQ(0, unlink(spool_->path_of(id).c_str()));
    runner_->run_once();
    EXPECT_EQ(Strings{}, log_);
    EXPECT_EQ(0u, spool_->count().waiting + spool_->count().active);
}

TEST_F(RunnerTest, NobodyGetsTheMailTwiceBecauseTheDiskRefusesMarks)
{
    for (const char *call : {"pwrite", "fdatasync"}) {
        script_ = {};
        script_.batch = 1;
        script_.answers["b@x"] = {};
        const std::string id = submit({"a@x", "b@x"});
        queue_test::harm = Harm::fail;
        queue_test::calls_made = 0;
        queue_test::harm_at = call == std::string("pwrite") ? 1 : 2;
        runner_->run_once();
        EXPECT_EQ(Strings{"a@x"}, script_.recipients()) << call;
        queue_test::calls_made = 0;
        queue_test::harm_at = 1; /* still full: nothing is sent */
        wait(4000);
        runner_->run_once();
        EXPECT_EQ(Strings{"a@x"}, script_.recipients()) << call;
        queue_test::harm = Harm::none;
        wait(8000);
        runner_->run_once();
        EXPECT_EQ((Strings{"a@x", "b@x"}), script_.recipients()) << call;
        EXPECT_EQ(Strings{}, queued());
    }
}

TEST_F(RunnerTest, FailuresAreNotForgottenWhenTheNoticeCannotBeWritten)
{
    script_.answers["a@x"] = {{Kind::never, "550 no"}, {Kind::never, "550 no"}};
    submit({"a@x"});
    queue_test::harm = Harm::fail;
    queue_test::calls_made = 0;
    queue_test::harm_at = 2; /* unlink of a left notice, then its creation */
    EXPECT_EQ(1u, runner_->run_once());
    queue_test::harm = Harm::none;
    EXPECT_EQ(1u, queued().size());
    wait(60);
    EXPECT_EQ(2u, runner_->run_once());
    EXPECT_EQ((Strings{"a@x", "a@x", "boss@example.jp", "vice@example.jp"}), script_.recipients());
}

TEST_F(RunnerTest, ManyFailuresComeInNoticesOfBoundedSize)
{
    Strings many;
    for (int i = 0; i < 2500; i++) {
        many.push_back("u" + std::to_string(i) + "@x");
        script_.answers[many.back()] = {{Kind::never, "550 no"}};
    }
    owners_ = {"boss@example.jp"};
    submit(many);
    EXPECT_EQ(4u, runner_->run_once());
    EXPECT_EQ(2503u, script_.seen.size());
    EXPECT_EQ(Strings{}, queued());
}

/* Counts what it is given. */
class Counting : public Transport
{
  public:
    explicit Counting(std::atomic<int> &count) : count_(count) {}
    bool deliver(const OutboundMessage &, const std::string &,
                 std::span<const std::string_view> recipients, std::span<Answer> answers) override
    {
        count_ += static_cast<int>(recipients.size());
        for (Answer &answer : answers)
            answer = {Kind::done, ""};
        return true;
    }

  private:
    std::atomic<int> &count_;
};

TEST_F(RunnerTest, WorkersTakeUpNewMailAndStop)
{
    std::atomic<int> count{0};
    runner_settings_.workers = 3;
    settings_.log = nullptr;
    open();
    runner_.reset();
    auto spool = std::exchange(spool_, nullptr);
    Runner runner(
        *spool, [&] { return std::make_unique<Counting>(count); }, runner_settings_);
    runner.start();
    const std::string message = scratch_.write("message", text_);
    for (int i = 0; i < 20; i++)
        EXPECT_TRUE(spool->submit(message, "s@x", Strings{"a@x", "b@x"}, "alpha@example.jp"));
    for (int i = 0; i < 20'000 && count < 40; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    runner.stop();
    EXPECT_EQ(40, count);
    EXPECT_EQ(Strings{}, queued());
}

/* Its deliver() hangs until it is interrupted. */
class Hanging : public Transport
{
  public:
    Hanging(std::atomic<bool> &begun, std::atomic<bool> &rung) : begun_(begun), rung_(rung) {}
    bool deliver(const OutboundMessage &, const std::string &, std::span<const std::string_view>,
                 std::span<Answer> answers) override
    {
        begun_ = true;
        while (!rung_)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        answers[0] = {Kind::done, ""};
        return true;
    }
    void interrupt() override { rung_ = true; }

  private:
    std::atomic<bool> &begun_, &rung_;
};

TEST_F(RunnerTest, StoppingKeepsWhatIsNotHandedOver)
{
    std::atomic<bool> begun{false}, rung{false};
    runner_settings_.workers = 1;
    runner_.reset();
    const std::string id = submit({"a@x", "b@x"});
    {
        Runner runner(
            *spool_, [&] { return std::make_unique<Hanging>(begun, rung); }, runner_settings_);
        runner.start();
        while (!begun)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        runner.stop();
    }
    const QueuedMail mail = read_queued(spool_->path_of(id));
    EXPECT_EQ(Strings{"b@x"}, mail.todo);
    EXPECT_EQ(Strings{"a@x"}, mail.done);
    open();
    EXPECT_EQ(1u, runner_->run_once()) << "due at once";
    EXPECT_EQ(Strings{"b@x"}, script_.recipients());
}
} // namespace
