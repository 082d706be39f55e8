#include "host/mlistd/spool/target.h"

#include <errno.h>

#include "host/mlistd/outbox/outbox.h"
#include "host/mlistd/smtp/client.h"

static Result<TransportFactory> make_outbox(std::string_view argument,
                                            const TargetSettings &settings)
{
    if (!argument.empty()) return Error{"\"outbox\" takes nothing behind it", EINVAL};
    return TransportFactory([root = settings.outbox_directory, hostname = settings.hostname] {
        return std::make_unique<Outbox>(root, hostname);
    });
}

static Result<TransportFactory> make_smtp(std::string_view argument, const TargetSettings &settings)
{
    const auto server = parse_endpoint(argument);
    if (!server) return Error{"\"" + std::string(argument) + "\" is no HOST:PORT", EINVAL};
    SmtpSettings smtp;
    smtp.server = *server;
    smtp.hostname = settings.hostname;
    const std::chrono::seconds timeout(settings.timeout);
    smtp.connect_timeout = std::min<std::chrono::milliseconds>(smtp.connect_timeout, timeout);
    smtp.command_timeout = timeout;
    smtp.data_timeout = std::min<std::chrono::milliseconds>(smtp.data_timeout, timeout);
    smtp.end_timeout = 2 * timeout; /* the server may filter and store before it answers */
    return TransportFactory([smtp] { return std::make_unique<SmtpTransport>(smtp); });
}

static constexpr struct {
    std::string_view prefix;
    Result<TransportFactory> (*make)(std::string_view argument, const TargetSettings &settings);
} targets[] = {
    {"outbox", make_outbox},
    {"smtp:", make_smtp},
};

Result<TransportFactory> make_transport_factory(const TargetSettings &settings)
{
    for (const auto &target : targets)
        if (settings.target.starts_with(target.prefix))
            return target.make(std::string_view(settings.target).substr(target.prefix.size()),
                               settings);
    return Error{"\"" + settings.target + "\" is no relay target: outbox, smtp:HOST:PORT", EINVAL};
}
