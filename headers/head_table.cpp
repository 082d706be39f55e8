/* The header-name table; the first row whose name fits wins. */
#include "headers/head_table.h"

#include "headers/head.h"
#include "module/ascii.h"

/* Collectors that only read their value, in the shape of the table. */
template <int (*collect)(DeliveryJob *, const char *)> static int reading(DeliveryJob *job, char *v)
{
    return collect(job, v);
}

using enum HeaderRule;

// clang-format off
const HeaderRow header_rows[] = {
    {"Received:",      to_x_received,    false, nullptr,               nullptr},
    {"Subject:",       edited_subject,   true,  reading<head_subject>, "header_proc: subject err"},
    {"X-ML-Name:",     loop_check,       true,  head_xmlname,          "header_proc: xmlname err"},
    {"X-Mail-Count:",  drop,             false, nullptr,               nullptr},
    {"Precedence:",    drop,             false, nullptr,               nullptr},
    {"Errors-To:",     own_errors_to,    false, nullptr,               nullptr},
    {"Reply-To:",      own_reply_to,     false, nullptr,               nullptr},
    {"From ",          mailbox_envelope, false, nullptr,               nullptr},
    {"From:",          keep,             false, reading<head_from>,    "header_proc: from err"},
    {"Message-Id:",    keep,             false, reading<head_msgid>,   "header_proc: msgid err"},
    {"Content-Type:",  keep,             false, reading<head_contype>, "header_proc: contype err"},
    {"Return-Path:",   keep,             false, reading<head_retpath>, "header_proc: retpath err"},
    {"Disposition-Notification-To:", drop, false, nullptr,            nullptr},
    {"Resent-Sender:", drop,             false, nullptr,               nullptr},
    {"Resent-From:",   drop,             false, nullptr,               nullptr},
    {"Sender:",        drop,             false, nullptr,               nullptr},
};
// clang-format on

int find_header_row(const char *line)
{
    const unsigned char first = ascii_lower(static_cast<unsigned char>(line[0]));
    int index = 0;
    for (const HeaderRow &row : header_rows) {
        if (ascii_lower(static_cast<unsigned char>(row.name[0])) == first &&
            begins_nocase(line, row.name))
            return index;
        ++index;
    }
    return -1;
}
