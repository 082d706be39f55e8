#include "host/mlistd/outbound/fixups.h"

#include <stdio.h>

#include <algorithm>

#include "host/base/text.h"
#include "host/mlistd/spool/calls.h"

/* A header that is longer than this is not looked at any further. */
static constexpr off_t LONGEST_HEADER = 1024 * 1024;

namespace
{
/* Looks for header fields in pieces of any size. */
class HeaderScan
{
  public:
    bool has_date = false, has_message_id = false;

    /* True while the header goes on. */
    bool feed(std::string_view piece)
    {
        while (!piece.empty()) {
            const size_t end = std::min(piece.find('\n'), piece.size());
            keep_beginning(piece.substr(0, end));
            if (end == piece.size()) return true;
            if (!end_line()) return false;
            piece.remove_prefix(end + 1);
        }
        return true;
    }

    /* A last line without its end counts as well. */
    void finish() { (void)end_line(); }

  private:
    /* As much of a line as the longest name looked for needs. */
    void keep_beginning(std::string_view part)
    {
        constexpr size_t ENOUGH = 32;
        beginning_ += part.substr(0, ENOUGH - std::min(ENOUGH, beginning_.size()));
    }

    bool end_line()
    {
        if (beginning_.empty() || beginning_ == "\r") return false;
        has_date = has_date || begins_nocase(beginning_, "date:");
        has_message_id = has_message_id || begins_nocase(beginning_, "message-id:");
        beginning_.clear();
        return true;
    }

    std::string beginning_;
};
} // namespace

static Result<HeaderScan> scan_header(const FixupSubject &subject)
{
    HeaderScan scan;
    std::string piece;
    off_t at = 0;
    const off_t end = std::min(subject.size, LONGEST_HEADER);
    while (at < end) {
        piece.resize(static_cast<size_t>(std::min<off_t>(end - at, 16 * 1024)));
        const ssize_t n = queue_pread(subject.fd, piece.data(), piece.size(), subject.offset + at);
        if (n < 0) return system_error("reading a queued message");
        if (n == 0 || !scan.feed({piece.data(), static_cast<size_t>(n)})) break;
        at += n;
    }
    scan.finish();
    return scan;
}

std::string mail_date(time_t time)
{
    static const char *const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    struct tm local;
    localtime_r(&time, &local);
    const long minutes = local.tm_gmtoff / 60;
    const unsigned away = static_cast<unsigned>(minutes < 0 ? -minutes : minutes);
    char text[64];
    snprintf(text, sizeof(text), "%s, %d %s %d %02d:%02d:%02d %c%02u%02u", days[local.tm_wday],
             local.tm_mday, months[local.tm_mon], local.tm_year + 1900, local.tm_hour, local.tm_min,
             local.tm_sec, minutes < 0 ? '-' : '+', away / 60, away % 60);
    return text;
}

static std::string message_id(const FixupSubject &subject, const FixupSettings &settings)
{
    const size_t at = subject.list.rfind('@');
    const std::string domain =
        at == subject.list.npos ? settings.hostname : std::string(subject.list.substr(at + 1));
    return "<" + std::string(subject.id) + ".mlist@" + domain + ">";
}

Result<std::string> missing_header_lines(const FixupSubject &subject, const FixupSettings &settings)
{
    std::string lines;
    if (!settings.add_date && !settings.add_message_id) return lines;
    const auto scan = scan_header(subject);
    if (!scan) return scan.error();
    if (settings.add_date && !scan->has_date)
        lines += "Date: " + mail_date(subject.created) + "\r\n";
    if (settings.add_message_id && !scan->has_message_id)
        lines += "Message-ID: " + message_id(subject, settings) + "\r\n";
    return lines;
}
