/* DATA: receiving the mail, then an answer for each recipient. */
#include <algorithm>
#include <atomic>

#include "host/base/text.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lmtp/session.h"

/* No two receptions of one process share a name; what an earlier process left is removed when the
   daemon starts. */
static std::string new_file_name(const std::string &directory)
{
    static std::atomic<uint64_t> counter;
    return directory + "/" + std::to_string(getpid()) + "." + std::to_string(++counter);
}

/* False when the mail did not arrive whole: the session is over then, and nothing is delivered. */
bool LmtpSession::receive(MessageReceiver &receiver)
{
    const int64_t end = steady_ms() + config_.data_timeout_ms;
    for (;;) {
        stream_.consume(receiver.feed(stream_.buffered()));
        if (receiver.finished()) return true;
        const Stream::Got got =
            stream_.fill(std::min(end, steady_ms() + config_.timeout_ms), false);
        if (got == Stream::Got::data) continue;
        log_notice(LOG_REFUSED, "lmtp: " + peer_ + " from=<" + *sender_ + "> " +
                                    (got == Stream::Got::timeout ? "stalled" : "dropped") +
                                    " in the middle of a mail");
        if (got == Stream::Got::timeout) close_with({421, "4.4.2", "timeout, closing"});
        open_ = false;
        return false;
    }
}

/* A list that stands among the recipients twice gets the mail once. */
Reply LmtpSession::answer_for(size_t index, const IncomingMail &mail)
{
    const auto begin = recipients_.begin();
    const auto end = begin + static_cast<std::ptrdiff_t>(index);
    const ListAddress &address = recipients_[index].address;
    const auto same = std::find_if(
        begin, end, [&](const Recipient &earlier) { return earlier.address == address; });
    return same != end ? *same->answer : handler_.deliver(address, mail);
}

/* Answers go out one by one: a list that keeps the next one waiting must not make the client
   doubt those before it.  When the client is gone the rest is left: it will come back with all of
   them. */
void LmtpSession::deliver_to_all(const MessageReceiver &receiver)
{
    const MessageFile &file = receiver.file();
    const IncomingMail mail{file.path(), *sender_, receiver.facts(), file.size()};
    for (size_t i = 0; i < recipients_.size() && open_; ++i) {
        recipients_[i].answer = answer_for(i, mail);
        answer(*recipients_[i].answer);
        flush();
    }
}

void LmtpSession::do_data(std::string_view)
{
    if (!sender_) return refuse({503, "5.5.1", "MAIL comes first"});
    if (recipients_.empty()) return refuse({503, "5.5.1", "no valid recipients"});
    auto file = MessageFile::create(new_file_name(config_.in_directory));
    if (!file) {
        log_error(LOG_MESSAGE, file.error().text);
        return answer({452, "4.3.1", "no room for a message now"});
    }
    MessageReceiver receiver(std::move(*file), config_.message_size);
    answer({354, "", "end with a line that holds a dot"});
    if (!flush() || !receive(receiver)) return;

    const Reply verdict = receiver.verdict();
    if (verdict.accepted()) {
        deliver_to_all(receiver);
    } else {
        log_notice(LOG_REFUSED,
                   "lmtp: " + peer_ + " from=<" + *sender_ + "> refused: " + verdict.text);
        for (size_t i = 0; i < recipients_.size(); ++i)
            answer(verdict);
    }
    reset();
}
