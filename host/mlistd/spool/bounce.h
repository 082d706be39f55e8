/* Telling a list's owners whom a message could not be delivered to. */
#ifndef HOST_MLISTD_SPOOL_BOUNCE_H
#define HOST_MLISTD_SPOOL_BOUNCE_H

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/base/result.h"
#include "host/mlistd/spool/envelope.h"
#include "host/mlistd/spool/spool.h"

struct BounceSettings {
    std::string hostname = "localhost";

    /* The owners' addresses of LIST@DOMAIN.  None, or no function: the bounce goes to the
       submission's own envelope sender. */
    std::function<std::vector<std::string>(const std::string &list)> owners_of;
};

/* One recipient given up, and what was said about him. */
struct Failure {
    off_t mark_at;
    std::string address;
    std::string text;
};

/* The failure notice: a multipart/report with an explanation, one group of fields a recipient,
   and the header of the message.  CR LF. */
std::string compose_bounce(const OpenEnvelope &submission, std::string_view id,
                           std::span<const Failure> failures, std::span<const std::string> owners,
                           const std::string &hostname);

/* Queues the notice.  A submission that is itself a bounce gets none, only a log line. */
Result<void> send_bounce(Spool &spool, const OpenEnvelope &submission, const std::string &id,
                         std::span<const Failure> failures, const BounceSettings &settings);

#endif
