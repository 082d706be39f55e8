/* What a spool holds, read from its files. */
#ifndef TESTS_UNIT_HOST_QUEUE_VIEW_H
#define TESTS_UNIT_HOST_QUEUE_VIEW_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/mlistd/spool/envelope.h"
#include "tests/unit/host/scratch.h"

struct QueuedMail {
    Envelope envelope;
    std::vector<std::string> todo, done, failed;
    std::string message;
};

inline std::vector<std::string> recipients_with(const OpenEnvelope &open, Mark mark)
{
    RecipientReader reader(open.file.get(), open.envelope, mark);
    std::vector<std::string> all;
    for (;;) {
        const auto batch = reader.next(1000);
        EXPECT_TRUE(batch);
        if (!batch || batch->empty()) return all;
        for (const QueuedRecipient &recipient : *batch)
            all.push_back(recipient.address);
    }
}

inline QueuedMail read_queued(const std::string &path)
{
    const auto open = open_envelope(path);
    EXPECT_TRUE(open) << (open ? "" : open.error().text);
    if (!open) return {};
    return {open->envelope, recipients_with(*open, Mark::todo), recipients_with(*open, Mark::done),
            recipients_with(*open, Mark::failed),
            read_file(path).substr(static_cast<size_t>(open->envelope.message_offset))};
}

#endif
