/* A pass over one submission: its recipients that are still to do, a batch at a time.  What a
   batch brought is marked on disk before the next one is tried; failures are marked once the
   notice about them is queued.  So a kill at any point repeats at most one batch. */
#include "host/mlistd/spool/runner.h"

#include <errno.h>

#include <algorithm>
#include <utility>

#include "host/mlistd/spool/calls.h"
#include "host/mlistd/spool/envelope.h"

/* Failures told of in one notice. */
static constexpr size_t FAILURES_A_NOTICE = 1000;

/* After this long without work a worker lets go of its connection. */
static constexpr std::chrono::milliseconds IDLE(30'000);

struct RelayPass {
    const std::string &id;
    OpenEnvelope submission;
    std::string prefix = {}; /* header lines of ours */
    bool expired = false;    /* too old: what is not done now fails */
    bool shut = false;       /* the way out is: nothing more is tried */
    bool damaged = false;    /* somebody's mark is no mark: he may not have the mail */
    size_t done = 0, later = 0;
    std::string last_text = {}; /* of what is to be tried again */
    std::vector<Failure> failures = {};
};

static Result<void> find_prefix(RelayPass &pass, const FixupSettings &settings)
{
    const Envelope &envelope = pass.submission.envelope;
    auto prefix =
        missing_header_lines({pass.submission.file.get(), envelope.message_offset,
                              envelope.message_size, pass.id, envelope.list, envelope.created},
                             settings);
    if (!prefix) return prefix.error();
    pass.prefix = std::move(*prefix);
    return {};
}

Runner::Runner(Spool &spool, TransportFactory make_transport, RunnerSettings settings)
    : spool_(spool), make_transport_(std::move(make_transport)), settings_(std::move(settings))
{
}

Runner::~Runner()
{
    stop();
}

void Runner::start()
{
    for (unsigned i = 0; i < settings_.workers; i++) {
        transports_.push_back(make_transport_());
        threads_.emplace_back([this, transport = transports_.back().get()] { work(*transport); });
    }
}

void Runner::stop()
{
    {
        const std::lock_guard lock(stop_mutex_);
        if (stopping_.exchange(true)) return;
    }
    stop_signal_.notify_all();
    spool_.wake_all();
    for (const auto &transport : transports_)
        transport->interrupt();
    for (std::thread &thread : threads_)
        thread.join();
    threads_.clear();
    transports_.clear();
}

void Runner::retry_now()
{
    hold_until_ = 0;
    stop_signal_.notify_all();
    spool_.retry_now();
}

bool Runner::held() const
{
    return queue_calls->now() < hold_until_;
}

void Runner::wait_out_hold()
{
    std::unique_lock lock(stop_mutex_);
    while (!stopping_ && held())
        stop_signal_.wait_for(lock, std::chrono::seconds(1));
}

/* By whichever worker comes along first. */
void Runner::look_for_changes()
{
    const time_t now = queue_calls->now();
    time_t last = rescanned_;
    if (now - last < settings_.rescan && now >= last) return;
    if (!rescanned_.compare_exchange_strong(last, now)) return;
    if (const auto result = spool_.rescan(); !result) spool_.log(1, result.error().text);
}

void Runner::work(Transport &transport)
{
    while (!stopping_) {
        look_for_changes();
        if (held()) transport.idle();
        wait_out_hold();
        if (stopping_) return;
        if (const auto id = spool_.take_due(IDLE, &stopping_))
            work_on(*id, transport);
        else
            transport.idle();
    }
}

size_t Runner::run_once()
{
    const auto transport = make_transport_();
    size_t count = 0;
    while (const auto id = spool_.take_due(std::chrono::milliseconds(0))) {
        work_on(*id, *transport);
        count++;
    }
    return count;
}

/* Sets marks.  Should the disk refuse them they are owed, and nothing is sent again of this
   submission before they are there: else its recipients would get the mail at every try. */
Result<void> Runner::record(RelayPass &pass, std::vector<off_t> marks_at, Mark mark)
{
    auto result = set_marks(pass.submission.file.get(), marks_at, mark);
    if (!result) {
        const std::lock_guard lock(owed_mutex_);
        owed_[pass.id].emplace_back(mark, std::move(marks_at));
    }
    return result;
}

Result<void> Runner::record_what_is_owed(RelayPass &pass)
{
    const std::lock_guard lock(owed_mutex_);
    const auto owed = owed_.find(pass.id);
    if (owed == owed_.end()) return {};
    for (const auto &[mark, marks_at] : owed->second)
        if (auto result = set_marks(pass.submission.file.get(), marks_at, mark); !result)
            return result;
    owed_.erase(owed);
    return {};
}

/* Answers sorted: marks to set, failures to tell of, the rest. */
Result<void> Runner::take_answers(RelayPass &pass, std::span<const QueuedRecipient> batch,
                                  std::span<Answer> answers)
{
    std::vector<off_t> done;
    for (size_t i = 0; i < batch.size(); i++) {
        Answer &answer = answers[i];
        if (answer.kind == Answer::Kind::later && !answer.text.empty())
            pass.last_text = answer.text;
        if (answer.kind == Answer::Kind::done)
            done.push_back(batch[i].mark_at);
        else if (answer.kind == Answer::Kind::never)
            pass.failures.push_back({batch[i].mark_at, batch[i].address, std::move(answer.text)});
        else if (pass.expired)
            pass.failures.push_back({batch[i].mark_at, batch[i].address,
                                     "too long in the queue; last: " + answer.text});
        else
            pass.later++;
    }
    pass.done += done.size();
    return record(pass, std::move(done), Mark::done);
}

/* Tells of the failures and marks them; until that is done they count as untried. */
Result<void> Runner::tell_failures(RelayPass &pass)
{
    if (pass.failures.empty()) return {};
    auto result = send_bounce(spool_, pass.submission, pass.id, pass.failures, settings_.bounce);
    if (!result) return result;
    std::vector<off_t> marks_at;
    for (const Failure &failure : pass.failures)
        marks_at.push_back(failure.mark_at);
    pass.failures.clear();
    return record(pass, std::move(marks_at), Mark::failed);
}

static void deliver_batch(Transport &transport, RelayPass &pass,
                          std::span<const QueuedRecipient> batch, std::span<Answer> answers)
{
    const Envelope &envelope = pass.submission.envelope;
    const OutboundMessage message = {pass.id,
                                     pass.prefix,
                                     pass.submission.file.get(),
                                     envelope.message_offset,
                                     envelope.message_size,
                                     envelope.created};
    std::vector<std::string_view> addresses;
    for (const QueuedRecipient &recipient : batch)
        addresses.emplace_back(recipient.address);
    pass.shut = !transport.deliver(message, envelope.sender, addresses, answers);
}

/* Everything that is still to do, once. */
Result<void> Runner::deliver_all(Transport &transport, RelayPass &pass)
{
    RecipientReader reader(pass.submission.file.get(), pass.submission.envelope);
    for (;;) {
        const auto batch = reader.next(transport.batch_size());
        if (!batch) return batch.error();
        if (batch->empty()) {
            pass.damaged = reader.damaged();
            return {};
        }
        if (stopping_ || (pass.shut && !pass.expired)) {
            pass.later += batch->size();
            return {};
        }
        std::vector<Answer> answers(batch->size(), Answer{Answer::Kind::later, pass.last_text});
        if (!pass.shut) deliver_batch(transport, pass, *batch, answers);
        if (stopping_) pass.expired = false; /* an interrupted try is none */
        if (auto result = take_answers(pass, *batch, answers); !result) return result;
        if (pass.failures.size() < FAILURES_A_NOTICE) continue;
        if (auto result = tell_failures(pass); !result) return result;
    }
}

void Runner::cannot_open(const std::string &id, const Error &error)
{
    if (error.code == ENOENT) return spool_.finished(id); /* the operator removed it */
    spool_.log(1, error.text);
    if (error.code == EBADMSG) return spool_.put_aside(id);
    spool_.try_again(id, queue_calls->now() + spool_.settings().retry_min);
}

void Runner::work_on(const std::string &id, Transport &transport)
{
    auto submission = open_envelope(spool_.path_of(id));
    if (!submission) return cannot_open(id, submission.error());

    RelayPass pass{id, std::move(*submission)};
    const Envelope &envelope = pass.submission.envelope;
    pass.expired = queue_calls->now() - envelope.created > spool_.settings().maximum_age;
    auto result = record_what_is_owed(pass);
    if (result) result = find_prefix(pass, settings_.fixups);
    if (result) result = deliver_all(transport, pass);
    if (result) result = tell_failures(pass);
    if (!result) {
        spool_.log(1, "mlname=" + envelope.list + " " + id + ": " + result.error().text);
        pass.later++;
    }
    conclude(pass);
}

/* Where the submission goes from here. */
void Runner::conclude(const RelayPass &pass)
{
    const Envelope &envelope = pass.submission.envelope;
    const time_t now = queue_calls->now();
    if (pass.later == 0 && pass.damaged) {
        spool_.log(1, spool_.path_of(pass.id) + ": a recipient without a mark");
        return spool_.put_aside(pass.id);
    }
    if (pass.later == 0) {
        spool_.log(5, "mlname=" + envelope.list + " " + pass.id + " sent");
        return spool_.finished(pass.id);
    }
    if (stopping_) return spool_.try_again(pass.id, now);
    spool_.log(3, "mlname=" + envelope.list + " " + pass.id + " " + std::to_string(pass.done) +
                      " done, " + std::to_string(pass.later) + " later: " + pass.last_text);
    if (!pass.shut) return spool_.try_again(pass.id, spool_.next_try(envelope.created));
    hold_until_ = now + std::min(settings_.hold, spool_.settings().retry_min);
    spool_.try_again(pass.id, now + spool_.settings().retry_min);
}
