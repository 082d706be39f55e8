#include "host/mlistd/spool/envelope.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "host/base/text.h"
#include "host/mlistd/spool/calls.h"

static constexpr std::string_view FIRST_LINE = "mlist-queue 1";
static constexpr off_t ALIGNMENT = 4096;
static constexpr size_t LONGEST_ADDRESS = 320;
static constexpr size_t LONGEST_HEAD = 4096; /* of the lines before the recipients */

bool usable_address(std::string_view address)
{
    return !address.empty() && address.size() <= LONGEST_ADDRESS &&
           std::none_of(address.begin(), address.end(),
                        [](char c) { return is_control(c) || c == ' ' || c == '<' || c == '>'; });
}

static std::string head_lines(const std::string &sender, const std::string &list, time_t created,
                              size_t recipient_count, off_t offset, off_t size)
{
    char numbers[64];
    snprintf(numbers, sizeof(numbers), "message %012lld %012lld\n", static_cast<long long>(offset),
             static_cast<long long>(size));
    std::string head(FIRST_LINE);
    head += '\n';
    head += numbers;
    head += "created " + std::to_string(created) + "\nsender " + sender + "\nlist " + list +
            "\nrecipients " + std::to_string(recipient_count) + "\n\n";
    return head;
}

std::string compose_envelope(const std::string &sender, const std::string &list, time_t created,
                             std::span<const std::string_view> recipients, off_t message_size)
{
    /* the offset has a fixed width, so a first try without it tells the length */
    size_t length = head_lines(sender, list, created, recipients.size(), 0, message_size).size();
    for (const std::string_view recipient : recipients)
        length += recipient.size() + 2;
    const off_t unaligned = static_cast<off_t>(length);
    const off_t offset = (unaligned + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;

    std::string text = head_lines(sender, list, created, recipients.size(), offset, message_size);
    text.reserve(static_cast<size_t>(offset));
    for (const std::string_view recipient : recipients) {
        text += static_cast<char>(Mark::todo);
        text += recipient;
        text += '\n';
    }
    text.resize(static_cast<size_t>(offset), '\n');
    return text;
}

/* Takes "KEY VALUE\n" off the front of a text. */
static std::optional<std::string_view> take_value(std::string_view &text, std::string_view key)
{
    const size_t end = text.find('\n');
    if (end == text.npos || !text.starts_with(key)) return std::nullopt;
    const std::string_view value = text.substr(key.size(), end - key.size());
    text.remove_prefix(end + 1);
    return value;
}

static bool take_number(std::string_view &text, std::string_view key, int64_t &number_out)
{
    const auto value = take_value(text, key);
    const auto number = value ? parse_number(*value) : std::nullopt;
    if (number) number_out = *number;
    return number && *number >= 0;
}

static bool take_two_numbers(std::string_view &text, std::string_view key, int64_t &first_out,
                             int64_t &second_out)
{
    const auto value = take_value(text, key);
    const size_t blank = value ? value->find(' ') : std::string_view::npos;
    if (blank == std::string_view::npos) return false;
    const auto first = parse_number(value->substr(0, blank));
    const auto second = parse_number(value->substr(blank + 1));
    if (!first || !second || *first < 0 || *second < 0) return false;
    first_out = *first;
    second_out = *second;
    return true;
}

static bool take_line(std::string_view &text, std::string_view line)
{
    const auto rest = take_value(text, line);
    return rest && rest->empty();
}

static bool parse_head(std::string_view text, Envelope &envelope_out)
{
    const size_t whole = text.size();
    int64_t offset = 0, size = 0, created = 0, recipients = 0;
    if (!take_line(text, FIRST_LINE) || !take_two_numbers(text, "message ", offset, size) ||
        !take_number(text, "created ", created))
        return false;
    const auto sender = take_value(text, "sender ");
    const auto list = take_value(text, "list ");
    if (!sender || !list || !take_number(text, "recipients ", recipients) || !take_line(text, ""))
        return false;
    envelope_out = {std::string(*sender),
                    std::string(*list),
                    created,
                    static_cast<uint64_t>(recipients),
                    static_cast<off_t>(whole - text.size()),
                    offset,
                    size};
    return envelope_out.recipients_offset <= offset;
}

Result<OpenEnvelope> open_envelope(const std::string &path)
{
    OpenEnvelope open{Fd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)), {}};
    if (!open.file) return system_error(path);
    char head[LONGEST_HEAD];
    const ssize_t n = queue_pread(open.file.get(), head, sizeof(head), 0);
    struct stat status;
    if (n < 0 || fstat(open.file.get(), &status) < 0) return system_error(path);
    Envelope &envelope = open.envelope;
    if (!parse_head({head, static_cast<size_t>(n)}, envelope) ||
        envelope.message_offset > status.st_size ||
        envelope.message_size != status.st_size - envelope.message_offset)
        return Error{path + ": not a whole submission", EBADMSG};
    return open;
}

/* Or the line that fills up to the message. */
static bool has_mark(std::string_view line)
{
    return line.empty() || std::string_view("TDF").find(line[0]) != line.npos;
}

/* The lines that lie wholly in piece, as far as count allows.  Returns how much of it they are. */
Result<size_t> RecipientReader::take_lines(std::string_view piece, size_t count,
                                           std::vector<QueuedRecipient> &batch)
{
    size_t used = 0;
    while (used < piece.size() && batch.size() < count) {
        const size_t end = piece.find('\n', used);
        if (end == piece.npos) break;
        const std::string_view line = piece.substr(used, end - used);
        damaged_ |= !has_mark(line);
        if (!line.empty() && line[0] == static_cast<char>(wanted_))
            batch.push_back({at_ + static_cast<off_t>(used), std::string(line.substr(1))});
        used = end + 1;
    }
    if (used == 0 && batch.size() < count) return Error{"a recipient without an end", EBADMSG};
    return used;
}

Result<std::vector<QueuedRecipient>> RecipientReader::next(size_t count)
{
    constexpr off_t PIECE = 64 * 1024;
    std::vector<QueuedRecipient> batch;
    std::string piece;
    while (at_ < end_ && batch.size() < count) {
        piece.resize(static_cast<size_t>(std::min(PIECE, end_ - at_)));
        const ssize_t n = queue_pread(fd_, piece.data(), piece.size(), at_);
        if (n < 0) return system_error("reading recipients");
        const auto used = take_lines({piece.data(), static_cast<size_t>(n)}, count, batch);
        if (!used) return used.error();
        at_ += static_cast<off_t>(*used);
    }
    return batch;
}

/* One write for a stretch of lines: marks apart it puts back what is there, so that even a half
   written stretch harms nothing. */
static Result<void> mark_stretch(int fd, std::span<const off_t> marks_at, Mark mark)
{
    std::string stretch(static_cast<size_t>(marks_at.back() - marks_at.front() + 1), '\0');
    const ssize_t n = queue_pread(fd, stretch.data(), stretch.size(), marks_at.front());
    if (n < 0) return system_error("reading marks");
    if (static_cast<size_t>(n) != stretch.size()) return Error{"a submission was cut", EBADMSG};
    for (const off_t at : marks_at)
        stretch[static_cast<size_t>(at - marks_at.front())] = static_cast<char>(mark);
    if (queue_pwrite(fd, stretch, marks_at.front()) < 0) return system_error("writing marks");
    return {};
}

Result<void> set_marks(int fd, std::span<const off_t> marks_at, Mark mark)
{
    if (marks_at.empty()) return {};
    constexpr off_t LONGEST_STRETCH = 1024 * 1024;
    while (!marks_at.empty()) {
        size_t count = 1;
        while (count < marks_at.size() && marks_at[count] - marks_at[0] < LONGEST_STRETCH)
            count++;
        if (auto result = mark_stretch(fd, marks_at.first(count), mark); !result) return result;
        marks_at = marks_at.subspan(count);
    }
    if (queue_calls->fdatasync(fd) < 0) return system_error("syncing marks");
    return {};
}
