/* One answer of the LMTP server. */
#ifndef HOST_MLISTD_LMTP_REPLY_H
#define HOST_MLISTD_LMTP_REPLY_H

#include <string>

struct Reply {
    int code = 0;
    std::string status; /* enhanced status code (RFC 3463), "" for none */
    std::string text;   /* one line of printable ASCII */

    [[nodiscard]] std::string line() const
    {
        return std::to_string(code) + " " + status + (status.empty() ? "" : " ") + text + "\r\n";
    }
    [[nodiscard]] bool accepted() const { return code >= 200 && code < 300; }
};

#endif
