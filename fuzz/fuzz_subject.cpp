/* Any text as the subject of a posting: the list's tag is put in front of it once, so that the same
   posting sent again, as it left the list, leaves it with the same subject.  The first byte of the
   input chooses the tag's format, the second the posting's number. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>

#include "fuzz/demand.h"
#include "headers/head.h"
#include "mlist/mlist.h"

static const char *const formats[] = {"[%M:%S]", "[%M:%0S]", "(%M %%%S)", "%M.%0S:", "[%M%09%S]"};

static std::unique_ptr<DeliveryJob> make_job(uint8_t format, uint32_t number)
{
    auto job = std::make_unique<DeliveryJob>();
    strcpy(job->list_name, "mylist");
    strcpy(job->settings.subject_format, formats[format % (sizeof formats / sizeof formats[0])]);
    job->new_number = number;
    job->header_index = -1;
    return job;
}

/* The field's value, as the lines of a header bring it. */
static void collect(DeliveryJob *job, const std::string &field)
{
    for (size_t at = 0; at < field.size();) {
        const size_t feed = field.find('\n', at);
        const size_t end = feed == std::string::npos ? field.size() : feed + 1;
        char line[LINE_SIZE];
        memcpy(line, field.data() + at, end - at);
        line[end - at] = '\0';
        demand(header_proc(line, job) == HEADER_DROP);
        at = end;
    }
}

/* The field that leaves the list, "" when the subject is refused. */
static std::string tagged(DeliveryJob *job, const std::string &field)
{
    collect(job, field);
    char line[LINE_SIZE];
    if (header_sub(line, sizeof(line), job) < 0) return "";
    const std::string made = line;
    demand(made.starts_with("Subject: ") && made.ends_with("\r\n"));
    return made;
}

static std::string tag_of(DeliveryJob *job)
{
    char tag[LINE_SIZE];
    demand(make_subfmt(job, tag, sizeof(tag)) == tag);
    return tag;
}

/* Whether a text is made of ASCII and of runs of whole kanji, each with its escapes, and of more
   than blanks between them: those are lost between encoded words. */
static bool is_whole(const std::string &text)
{
    for (size_t at = 0; at < text.size();) {
        if (text[at] != '\x1b') {
            ++at;
            continue;
        }
        const std::string in = text.substr(at, 3);
        const size_t end = text.find('\x1b', at + 1);
        if ((in != "\x1b$B" && in != "\x1b$@") || end == std::string::npos) return false;
        if (text.compare(end, 3, "\x1b(B") != 0) return false;
        if (end == at + 3 || (end - at - 3) % 2 != 0) return false;
        for (size_t i = at + 3; i < end; ++i)
            if (text[i] < 0x21 || text[i] > 0x7e) return false;
        at = end + 3;
        const size_t behind = std::min(text.find_first_not_of(' ', at), text.size());
        if (behind > at && text.compare(behind, 2, "\x1b$") == 0) return false;
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FILE *const nowhere = fopen("/dev/null", "we");
    mlist_set_output(nowhere);
    force_remove_bracket = 0;
    if (size < 2 || size > 600) return 0;
    std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    text = text.substr(0, text.find_first_of(std::string("\r\n\0", 3)));

    const auto job = make_job(data[0], data[1]);
    const std::string first = tagged(job.get(), "Subject: " + text + "\r\n");
    if (first.empty()) return 0;
    demand(first.starts_with("Subject: " + tag_of(job.get()) + " "));
    if (strstr(job->subject, "=?") != nullptr) return 0; /* an encoded word within another */
    if (!is_whole(job->subject)) return 0;               /* encoding makes whole characters of it */
    if (first.size() > 1024) return 0; /* more than is collected of a subject that comes in */

    const auto again = make_job(data[0], data[1]);
    demand(tagged(again.get(), first) == first);
    return 0;
}
