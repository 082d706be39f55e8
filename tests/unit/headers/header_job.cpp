#include "tests/unit/headers/header_job.h"

#include <string.h>

#include <algorithm>

#include "headers/head.h"
#include "mlist/mlist.h"
#include "tests/support/log_capture.h"

static void turn_switches_off()
{
    add_resent_header = 0;
    force_remove_bracket = 0;
}

HeaderJob::HeaderJob() : job_(std::make_unique<DeliveryJob>())
{
    turn_switches_off();
    take_log();
    strcpy(job_->list_name, "mylist");
    strcpy(job_->domain, "lists.example");
    strcpy(job_->settings.subject_format, "[%M:%S]");
    job_->settings.precedence = PRECEDENCE_LIST;
    job_->new_number = 12;
    job_->parse_state = STATE_HEADER;
    job_->flags = JOB_FIRST_LINE;
    job_->header_index = -1;
    job_->header_mask = 63;
    job_->content_kind = CONTENT_PLAIN;
}

HeaderJob::~HeaderJob()
{
    turn_switches_off();
}

void HeaderJob::set_subject(const std::string &text)
{
    strcpy(job_->subject, text.c_str());
}

void HeaderJob::set_sender(const std::string &text)
{
    strcpy(job_->sender, text.c_str());
}

void HeaderJob::set_format(const std::string &text)
{
    strcpy(job_->settings.subject_format, text.c_str());
}

int HeaderJob::process(std::string &line)
{
    GuardedBuffer buffer(LINE_SIZE);
    memcpy(buffer.data(), line.c_str(), line.size() + 1);
    const int fate = header_proc(buffer.data(), job_.get());
    if (!buffer.intact() || !buffer.terminated()) return -99;
    line = buffer.data();
    return fate;
}

bool HeaderJob::add_end_lines(std::string &out)
{
    make_owner_string(job_->sender);
    char lines[LINE_SIZE];
    if (header_add(lines, sizeof lines, job_.get()) < 0) return false;
    out += lines;
    if (header_add2(lines, sizeof lines, job_.get()) < 0) return false;
    out += lines;
    if (header_sub(lines, sizeof lines, job_.get()) < 0) return false;
    if (job_->settings.subject_mode == SUBJECT_EDIT) out += lines;
    return true;
}

std::string HeaderJob::rewrite(const std::string &header)
{
    job_->header_mask = add_resent_header != 0 ? 61 : 63;
    if (job_->settings.reply_to_mode == REPLYEDIT_NO) job_->header_mask &= ~16u;
    std::string out;
    for (size_t at = 0; at < header.size();) {
        const size_t end = std::min(header.find('\n', at), header.size() - 1) + 1;
        std::string line = header.substr(at, end - at);
        const int fate = process(line);
        if (fate < 0) return "";
        if (fate != HEADER_DROP) out += line;
        job_->flags &= ~static_cast<uint32_t>(JOB_FIRST_LINE);
        at = end;
    }
    return add_end_lines(out) ? out + "\r\n" : "";
}

GuardedBuffer::GuardedBuffer(size_t size) : bytes_(size + 2 * GUARD, '\x5a') {}

bool GuardedBuffer::intact() const
{
    const auto is_canary = [](char byte) { return byte == '\x5a'; };
    return std::all_of(bytes_.begin(), bytes_.begin() + GUARD, is_canary) &&
           std::all_of(bytes_.end() - GUARD, bytes_.end(), is_canary);
}

bool GuardedBuffer::terminated() const
{
    return std::find(bytes_.begin() + GUARD, bytes_.end() - GUARD, '\0') != bytes_.end() - GUARD;
}

uint32_t RandomBytes::below(uint32_t limit)
{
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint32_t>(state_ >> 33) % limit;
}

char RandomBytes::pick(const std::string &alphabet)
{
    return alphabet[below(static_cast<uint32_t>(alphabet.size()))];
}

std::string RandomBytes::text(size_t length, const std::string &alphabet)
{
    std::string text(length, ' ');
    for (char &byte : text)
        byte = pick(alphabet);
    return text;
}

std::string unfold(std::string text)
{
    for (size_t at; (at = text.find("\r\n\t")) != std::string::npos;)
        text.erase(at, 3);
    return text;
}
