/* Any text as the message numbers of a command, beside a plain reader of them.  The first byte says
   how many messages the archive has, the second where their numbers begin, the third where they
   have gaps. */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "archive/mbx.h"
#include "commands/cmd_archive.h"
#include "commands/cmd_args.h"
#include "fuzz/demand.h"
#include "module/host_mem.h"
#include "tests/reference/number_args.h"

static reference::Numbers numbers_of(const uint8_t *choice)
{
    reference::Numbers numbers;
    uint32_t number = choice[1] % 8 == 7 ? 4294967000u : choice[1];
    for (int i = 0; i < choice[0] % 40; ++i) {
        number += 1 + (choice[2] >> i % 8 & 1) * (choice[2] % 13u);
        numbers.push_back(number);
    }
    return numbers;
}

/* An open archive in memory that holds these numbers, in a job. */
class OpenBox
{
  public:
    explicit OpenBox(const reference::Numbers &numbers) : records_(numbers.size() + 1)
    {
        uid_next(records_.data()) = numbers.empty() ? 1 : numbers.back() + 1;
        record_count(records_.data()) = static_cast<uint32_t>(records_.size());
        for (size_t i = 0; i < numbers.size(); ++i) {
            records_[i + 1].uid = numbers[i];
            records_[i + 1].size = numbers[i] % 7 * 300;
        }
        box_.index = records_.data();
        job_->mailbox = &box_;
    }
    DeliveryJob *job() { return job_.get(); }
    IndexRecord *index() { return box_.index; }

  private:
    std::vector<IndexRecord> records_;
    MailboxHandle box_ = {};
    std::unique_ptr<DeliveryJob> job_ = std::make_unique<DeliveryJob>();
};

static std::string corrected(const std::string &text)
{
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    demand(correct_argstr(buffer.data()) == 0);
    return buffer.data();
}

static void compare_expansion(OpenBox *box, const reference::Numbers &archive,
                              const std::string &text, size_t size)
{
    const std::unique_ptr<char[]> out(new char[size + 1]);
    const std::string got = expand_argstr(box->index(), text.c_str(), out.get(), size);
    demand(got == reference::expand(archive, text, size));
}

static void compare_positions(OpenBox *box, const reference::Numbers &archive,
                              const std::string &text)
{
    int first = 0, last = 0;
    const int result = summconv_argstr(text.c_str(), box->index(), &first, &last);
    const auto expected = reference::positions(archive, text);
    demand((result == 0) == expected.has_value());
    if (expected) demand(first == expected->first && last == expected->second);
}

/* The set of numbers, and the walk over it: each message once, in order, in batches within the
   list's limit. */
static void compare_set(OpenBox *box, const reference::Numbers &archive, const std::string &text)
{
    unsigned char *bits = nullptr;
    size_t size = 0;
    demand(conv_argstr(box->job(), text.c_str(), &bits, &size) == 0);
    const HostPtr<unsigned char> owner(bits);
    const std::set<uint32_t> expected = reference::named(archive, text);
    reference::Numbers wanted;
    for (const uint32_t number : archive) {
        demand(is_in_set(box->job(), bits, size, number) == (expected.count(number) != 0));
        if (expected.count(number) != 0) wanted.push_back(number);
    }
    std::string walked;
    char batch[NUMBER_LIST_SIZE];
    box->job()->settings.size_limit = 1;
    for (BatchWalk walk(box->job(), bits, size); walk.next(batch);)
        walked += (walked.empty() ? "" : " ") + std::string(batch);
    demand(walked == reference::list_of(wanted));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 4 || size > 4000) return 0;
    const reference::Numbers archive = numbers_of(data);
    OpenBox box(archive);
    std::string raw(reinterpret_cast<const char *>(data) + 4, size - 4);
    raw.resize(strlen(raw.c_str()));
    const std::string text = reference::correct(raw);
    demand(corrected(raw) == text);
    compare_expansion(&box, archive, text, data[3] % 2 == 0 ? LINE_SIZE : data[3] / 8);
    compare_positions(&box, archive, text);
    compare_positions(&box, archive, raw);
    compare_set(&box, archive, text);
    return 0;
}
