#include "host/mlistd/lmtp/message.h"

#include <fcntl.h>

#include "host/mlistd/hostlog.h"

static constexpr size_t HELD_SIZE = 64 * 1024;

/* More hops than any honest way takes (RFC 5321, 6.3 asks for 100 at least). */
static constexpr size_t HOPS_MAX = 100;

Result<MessageFile> MessageFile::create(const std::string &path)
{
    Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0660));
    if (!file) return system_error(path);
    return MessageFile(path, std::move(file));
}

MessageFile::~MessageFile()
{
    if (file_) unlink(path_.c_str());
}

void MessageFile::write_out(std::string_view text)
{
    while (!text.empty() && error_ == 0) {
        const ssize_t written = write(file_.get(), text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
}

void MessageFile::append(std::string_view text)
{
    size_ += static_cast<int64_t>(text.size());
    if (abandoned_ || error_ != 0) return;
    held_ += text;
    if (held_.size() < HELD_SIZE) return;
    write_out(held_);
    held_.clear();
}

Result<void> MessageFile::flush()
{
    write_out(held_);
    held_.clear();
    if (error_ == 0) return {};
    errno = error_;
    return system_error(path_);
}

void MessageFile::abandon()
{
    if (abandoned_) return;
    abandoned_ = true;
    held_.clear();
    if (ftruncate(file_.get(), 0) != 0) log_warning(LOG_MESSAGE, system_error(path_).text);
}

/* What is refused anyway is read on, to the end that the client must reach before it listens, but
   kept nowhere. */
bool MessageReceiver::refused()
{
    return decoder_.has_nul() || file_.size() > size_limit_;
}

size_t MessageReceiver::feed(std::string_view wire)
{
    decoded_.clear();
    filtered_.clear();
    const size_t taken = decoder_.feed(wire, decoded_);
    filter_.feed(decoded_, filtered_);
    if (finished()) filter_.finish(filtered_);
    file_.append(filtered_);
    if (refused()) file_.abandon();
    return taken;
}

Reply MessageReceiver::verdict()
{
    if (decoder_.has_nul()) return {554, "5.6.0", "the message has NUL bytes"};
    if (file_.size() > size_limit_)
        return {552, "5.3.4",
                "the message is larger than " + std::to_string(size_limit_) + " bytes"};
    if (facts().received > HOPS_MAX) return {554, "5.4.6", "too many hops, the mail is in a loop"};
    const auto flushed = file_.flush();
    if (flushed) return {250, "2.0.0", "received"};
    log_error(LOG_MESSAGE, flushed.error().text);
    return {452, "4.3.1", "no room for the message now"};
}
