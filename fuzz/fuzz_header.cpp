/* Whole headers through header_proc() and what follows at their end, as the pipeline does it. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "headers/head.h"
#include "mlist/mlist.h"

/* The first bytes of the input choose the list's settings. */
static std::unique_ptr<DeliveryJob> make_job(uint8_t choice, uint8_t format)
{
    static const char *const formats[] = {"[%M:%S]", "[%M:%0S]", "", "%", "%0", "%%%09%20[%M"};
    auto job = std::make_unique<DeliveryJob>();
    strcpy(job->list_name, "mylist");
    strcpy(job->domain, "lists.example");
    strcpy(job->settings.subject_format, formats[format % 6]);
    job->settings.subject_mode = choice & 1;
    job->settings.reply_to_mode = (choice >> 1) % 3;
    job->new_number = 12;
    job->flags = JOB_FIRST_LINE;
    job->header_index = -1;
    job->header_mask = 63;
    add_resent_header = (choice >> 3) & 1;
    force_remove_bracket = (choice >> 4) % 3;
    return job;
}

/* One header line, as fgets() cuts it, in a buffer of exactly LINE_SIZE bytes. */
static int process_line(DeliveryJob *job, const std::string &line)
{
    auto buffer = std::make_unique<char[]>(LINE_SIZE);
    memcpy(buffer.get(), line.c_str(), strlen(line.c_str()) + 1);
    const int fate = header_proc(buffer.get(), job);
    if (fate < HEADER_FAIL || fate > HEADER_LOOP_CHECK) abort();
    if (memchr(buffer.get(), '\0', LINE_SIZE) == nullptr) abort();
    return fate;
}

/* Every line but the first of a Subject field begins with a tab. */
static void demand_one_field(const char *lines)
{
    for (const char *at = strchr(lines, '\n'); at != nullptr; at = strchr(at + 1, '\n'))
        if (at[-1] != '\r' || (at[1] != '\0' && at[1] != '\t')) abort();
}

static void end_header(DeliveryJob *job)
{
    auto lines = std::make_unique<char[]>(LINE_SIZE);
    make_owner_string(job->sender);
    (void)header_add(lines.get(), LINE_SIZE, job); /* both may refuse; that is no finding */
    (void)header_add2(lines.get(), LINE_SIZE, job);
    if (header_sub(lines.get(), LINE_SIZE, job) == 0) demand_one_field(lines.get());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FILE *const nowhere = fopen("/dev/null", "w");
    mlist_set_output(nowhere);
    if (size < 2) return 0;
    const auto job = make_job(data[0], data[1]);
    const std::string text(reinterpret_cast<const char *>(data + 2), size - 2);
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end + 1;
        if (end - at > LINE_SIZE - 1) end = at + LINE_SIZE - 1;
        if (process_line(job.get(), text.substr(at, end - at)) == HEADER_FAIL) return 0;
        job->flags &= ~static_cast<uint32_t>(JOB_FIRST_LINE);
        at = end;
    }
    end_header(job.get());
    return 0;
}
