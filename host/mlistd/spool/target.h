/* The setting that says where mail goes, and the transports that it makes. */
#ifndef HOST_MLISTD_SPOOL_TARGET_H
#define HOST_MLISTD_SPOOL_TARGET_H

#include <stdint.h>

#include <string>

#include "host/base/result.h"
#include "host/mlistd/spool/transport.h"

struct TargetSettings {
    std::string target;           /* "outbox", "smtp:HOST:PORT", "smtp:unix:/PATH" */
    std::string outbox_directory; /* of the outbox */
    std::string hostname;         /* said to the relay */
    int64_t timeout = 300;        /* seconds, for each step of the talk with the relay */
};

/* The error says what the target could be. */
Result<TransportFactory> make_transport_factory(const TargetSettings &settings);

#endif
