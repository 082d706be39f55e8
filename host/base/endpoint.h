/* Where a server listens or a client connects: "ADDRESS:PORT" or "unix:/PATH". */
#ifndef HOST_BASE_ENDPOINT_H
#define HOST_BASE_ENDPOINT_H

#include <optional>
#include <string>
#include <string_view>

struct Endpoint {
    std::string path; /* of a unix socket; then the other two are empty */
    std::string host; /* a name or an address, IPv6 without its brackets */
    std::string port; /* decimal, 1 to 65535 */
};

/* Nothing when the text is no endpoint.  "[::1]:2424" for IPv6, ":2424" is 127.0.0.1. */
std::optional<Endpoint> parse_endpoint(std::string_view text);

#endif
