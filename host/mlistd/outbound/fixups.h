/* What a message still needs before it leaves.  Only the outgoing copy gets it, never the archived
   one: the lines stand in front of the message on their way out and nowhere else. */
#ifndef HOST_MLISTD_OUTBOUND_FIXUPS_H
#define HOST_MLISTD_OUTBOUND_FIXUPS_H

#include <sys/types.h>
#include <time.h>

#include <string>
#include <string_view>

#include "host/base/result.h"

struct FixupSettings {
    bool add_date = true;
    bool add_message_id = true;
    std::string hostname = {}; /* the right side of a Message-ID whose list has no domain */
};

/* A message in a file, and what it was submitted as. */
struct FixupSubject {
    int fd;
    off_t offset;
    off_t size;
    std::string_view id;   /* of the submission */
    std::string_view list; /* LIST@DOMAIN or "" */
    time_t created;
};

/* The header lines to put in front, CR LF, "" for none; the same at every call. */
Result<std::string> missing_header_lines(const FixupSubject &subject,
                                         const FixupSettings &settings);

/* "Sat, 21 Nov 2026 18:00:00 +0900", the local time with its offset. */
std::string mail_date(time_t time);

#endif
