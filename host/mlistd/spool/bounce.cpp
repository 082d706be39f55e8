#include "host/mlistd/spool/bounce.h"

#include <algorithm>

#include "host/base/text.h"
#include "host/mlistd/outbound/fixups.h"
#include "host/mlistd/spool/calls.h"

/* As much of the message's header as a notice carries. */
static constexpr off_t LONGEST_QUOTED_HEADER = 64 * 1024;

/* The enhanced status in "550 5.1.1 text"; a general one when there is none. */
static std::string status_of(std::string_view text)
{
    const size_t first = text.find_first_of("45");
    for (size_t at = first; at != text.npos; at = text.find_first_of("45", at + 1)) {
        if (at > 0 && text[at - 1] != ' ') continue;
        const size_t end = std::min(text.find(' ', at), text.size());
        const auto parts = split(text.substr(at, end - at), '.');
        if (parts.size() == 3 && parse_number(parts[1]) && parse_number(parts[2]))
            return "5." + std::string(parts[1]) + "." + std::string(parts[2]);
    }
    return "5.0.0";
}

/* The message's header, in whole lines. */
static std::string quoted_header(const OpenEnvelope &submission)
{
    const Envelope &envelope = submission.envelope;
    std::string header(static_cast<size_t>(std::min(envelope.message_size, LONGEST_QUOTED_HEADER)),
                       '\0');
    const ssize_t n =
        queue_pread(submission.file.get(), header.data(), header.size(), envelope.message_offset);
    header.resize(static_cast<size_t>(std::max<ssize_t>(n, 0)));
    const size_t end = std::min(header.find("\n\r\n"), header.find("\n\n"));
    if (end != header.npos)
        header.resize(end + 1);
    else
        header.resize(header.rfind('\n') + 1);
    return header;
}

static std::string joined(std::span<const std::string> addresses)
{
    std::string text;
    for (const std::string &address : addresses)
        text += (text.empty() ? "" : ",\r\n ") + address;
    return text;
}

static std::string top_header(const OpenEnvelope &submission, const std::string &id,
                              std::span<const std::string> owners, const std::string &hostname,
                              const std::string &boundary)
{
    const std::string list =
        submission.envelope.list.empty() ? "a mailing list" : submission.envelope.list;
    return "From: Mail Delivery System <MAILER-DAEMON@" + hostname + ">\r\n" +
           "To: " + joined(owners) + "\r\n" + "Subject: Undelivered mail of " + list + "\r\n" +
           "Date: " + mail_date(queue_calls->now()) + "\r\n" + "Message-ID: <" + id + ".bounce." +
           std::to_string(queue_calls->now()) + "@" + hostname + ">\r\n" +
           "Auto-Submitted: auto-replied\r\nMIME-Version: 1.0\r\n" +
           "Content-Type: multipart/report; report-type=delivery-status;\r\n boundary=\"" +
           boundary + "\"\r\n\r\n";
}

static std::string explanation(const OpenEnvelope &submission, std::span<const Failure> failures)
{
    std::string text = "A message of " + submission.envelope.list +
                       " could not be delivered to the addresses below.\r\n"
                       "It is not tried again for them.\r\n";
    for (const Failure &failure : failures)
        text += "\r\n  " + failure.address + "\r\n    " + one_line(failure.text) + "\r\n";
    return text;
}

static std::string delivery_status(const OpenEnvelope &submission,
                                   std::span<const Failure> failures, const std::string &hostname)
{
    std::string text = "Reporting-MTA: dns; " + hostname +
                       "\r\nArrival-Date: " + mail_date(submission.envelope.created) + "\r\n";
    for (const Failure &failure : failures)
        text += "\r\nFinal-Recipient: rfc822; " + failure.address +
                "\r\nAction: failed\r\nStatus: " + status_of(failure.text) +
                "\r\nDiagnostic-Code: smtp; " + one_line(failure.text) + "\r\n";
    return text;
}

std::string compose_bounce(const OpenEnvelope &submission, std::string_view id,
                           std::span<const Failure> failures, std::span<const std::string> owners,
                           const std::string &hostname)
{
    const std::string name = std::string(id) + "." + std::to_string(failures[0].mark_at);
    const std::string boundary = "=_bounce_" + name + "_" + std::to_string(queue_calls->now());
    const std::string next = "\r\n--" + boundary;
    return top_header(submission, name, owners, hostname, boundary) + "--" + boundary +
           "\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n" +
           explanation(submission, failures) + next +
           "\r\nContent-Type: message/delivery-status\r\n\r\n" +
           delivery_status(submission, failures, hostname) + next +
           "\r\nContent-Type: text/rfc822-headers\r\nContent-Transfer-Encoding: 8bit\r\n\r\n" +
           quoted_header(submission) + next + "--\r\n";
}

static std::vector<std::string> bounce_recipients(const Envelope &envelope,
                                                  const BounceSettings &settings)
{
    std::vector<std::string> owners;
    if (settings.owners_of && !envelope.list.empty()) owners = settings.owners_of(envelope.list);
    std::erase_if(owners, [](const std::string &owner) { return !usable_address(owner); });
    if (owners.empty()) owners.push_back(envelope.sender);
    return owners;
}

Result<void> send_bounce(Spool &spool, const OpenEnvelope &submission, const std::string &id,
                         std::span<const Failure> failures, const BounceSettings &settings)
{
    const Envelope &envelope = submission.envelope;
    if (envelope.sender.empty()) {
        spool.log(1, "mlname=" + envelope.list + " a bounce cannot be delivered, given up: " + id);
        return {};
    }
    const auto owners = bounce_recipients(envelope, settings);
    const std::string path = spool.directory() + "/tmp/q.bounce-" + id;
    (void)queue_calls->unlink(path.c_str()); /* of a try that did not come to its end */
    {
        const Fd file(queue_calls->create(path.c_str(), 0660));
        if (!file || queue_write(file.get(), compose_bounce(submission, id, failures, owners,
                                                            settings.hostname)) < 0)
            return system_error(path);
    }
    const auto queued = spool.submit(path, "", owners, envelope.list);
    (void)queue_calls->unlink(path.c_str()); /* the next start removes it otherwise */
    if (!queued) return queued.error();
    spool.log(3, "mlname=" + envelope.list + " " + std::to_string(failures.size()) +
                     " recipients failed, owners told: " + id);
    return {};
}
