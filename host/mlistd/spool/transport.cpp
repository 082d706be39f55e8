#include "host/mlistd/spool/transport.h"

#include <errno.h>

#include <algorithm>
#include <vector>

#include "host/mlistd/spool/calls.h"

int visit_message(const OutboundMessage &message,
                  const std::function<bool(std::string_view piece)> &visitor)
{
    constexpr off_t PIECE = 64 * 1024;
    if (!message.prefix.empty() && !visitor(message.prefix)) return 0;
    std::vector<char> buffer(static_cast<size_t>(std::min(message.size, PIECE)));
    for (off_t at = 0; at < message.size;) {
        const size_t want = static_cast<size_t>(std::min(message.size - at, PIECE));
        const ssize_t n = queue_pread(message.fd, buffer.data(), want, message.offset + at);
        if (n < 0) return -1;
        if (n == 0) {
            errno = ENODATA;
            return -1;
        }
        if (!visitor({buffer.data(), static_cast<size_t>(n)})) return 0;
        at += n;
    }
    return 0;
}
