#include "host/base/endpoint.h"

#include <sys/un.h>

#include "host/base/text.h"

static constexpr std::string_view UNIX_PREFIX = "unix:";

static std::optional<Endpoint> unix_endpoint(std::string_view path)
{
    if (path.size() < 2 || path.front() != '/' || path.size() >= sizeof(sockaddr_un::sun_path))
        return std::nullopt;
    return Endpoint{std::string(path), "", ""};
}

static std::string_view without_brackets(std::string_view host)
{
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
}

std::optional<Endpoint> parse_endpoint(std::string_view text)
{
    if (text.starts_with(UNIX_PREFIX)) return unix_endpoint(text.substr(UNIX_PREFIX.size()));
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) return std::nullopt;
    const std::string_view port = text.substr(colon + 1);
    const auto number = parse_number(port);
    if (!number || *number < 1 || *number > 65535) return std::nullopt;
    const std::string_view host = text.substr(0, colon);
    const std::string_view bare = without_brackets(host);
    for (const char c : bare)
        if (!is_alnum(c) && c != '.' && c != '-' && c != '_' && c != ':') return std::nullopt;
    if (bare.find(':') != std::string_view::npos && bare.size() == host.size()) return std::nullopt;
    return Endpoint{"", bare.empty() ? "127.0.0.1" : std::string(bare), std::string(port)};
}
