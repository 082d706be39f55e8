#include "tests/support/fake_host.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "tests/support/temp_list.h"

static thread_local FakeHost *current_host;

struct FakeHostOps {
    static int submit(const char *file, const char *sender, const char *const *recipients,
                      const char *recipient_file, char *result)
    {
        FakeHost &host = *current_host;
        Submission submission;
        submission.file = file;
        submission.content = read_file(file);
        submission.envelope_sender = sender;
        submission.has_recipients = recipients != nullptr;
        for (; recipients != nullptr && *recipients != nullptr; ++recipients)
            submission.recipients.push_back(*recipients);
        submission.has_recipient_file = recipient_file != nullptr;
        if (recipient_file != nullptr) {
            submission.recipient_file = recipient_file;
            submission.recipient_file_content = read_file(recipient_file);
        }
        submission.result_was_zeroed =
            std::all_of(result, result + MLIST_RESULT_TEXT_SIZE, [](char c) { return c == '\0'; });
        snprintf(result, MLIST_RESULT_TEXT_SIZE, "%s", host.result_to_write.c_str());
        host.submissions.push_back(submission);
        if (host.accept && host.submitted) host.submitted(submission);
        return host.accept;
    }

    static void *allocate(size_t size)
    {
        FakeHost &host = *current_host;
        ++host.allocations;
        if (host.fail_allocation >= 0 && host.fail_allocation-- == 0) return nullptr;
        void *memory = malloc(size);
        if (memory != nullptr) {
            memset(memory, 0xA5, size); /* nobody may count on cleared memory */
            ++host.live_blocks;
        }
        return memory;
    }

    static void release(void *memory)
    {
        --current_host->live_blocks;
        free(memory);
    }

    static char *keep_text(const char *text)
    {
        char *copy = strdup(text);
        current_host->kept_.push_back(copy);
        return copy;
    }
};

FakeHost::FakeHost()
    : OwnRequest({FakeHostOps::submit, FakeHostOps::keep_text, FakeHostOps::allocate,
                  FakeHostOps::release})
{
    memset(reply_text, 'x', sizeof(reply_text) - 1);
    current_host = this;
}

FakeHost::~FakeHost()
{
    for (char *text : kept_)
        free(text);
    current_host = nullptr;
}

void FakeHost::set_result(const std::string &text)
{
    snprintf(result_text, sizeof(result_text), "%s", text.c_str());
}
