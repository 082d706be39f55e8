/* Any bytes as a file of the outgoing queue: it is a submission only when it is whole, no recipient
   is read from beyond his lines, they are the same however many are taken at a time, and marks
   change nothing but marks.
   An odd first byte: the input is what is submitted, a line each for sender, list and recipients
   and the message behind an empty one; it must come back as it went in. */
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "fuzz/demand.h"
#include "fuzz/memory_directory.h"
#include "host/base/text.h"
#include "host/mlistd/spool/calls.h"
#include "host/mlistd/spool/envelope.h"

/* In memory where the machine has a place for that, for the length of the process. */
class QueueFile
{
  public:
    QueueFile()
    {
        path_ = memory_directory() + "/fuzz-queue-XXXXXX";
        file_.reset(mkstemp(path_.data()));
        demand(file_);
    }
    ~QueueFile() { unlink(path_.c_str()); }

    const std::string &path() const { return path_; }
    void put(std::string_view text)
    {
        demand(ftruncate(file_.get(), 0) == 0);
        demand(queue_pwrite(file_.get(), text, 0) == 0);
    }
    std::string get() const
    {
        struct stat status;
        demand(fstat(file_.get(), &status) == 0);
        std::string text(static_cast<size_t>(status.st_size), '\0');
        demand(queue_pread(file_.get(), text.data(), text.size(), 0) == status.st_size);
        return text;
    }

  private:
    std::string path_;
    Fd file_;
};

/* -- reading -- */

/* Whether all could be read. */
static bool read_all(const OpenEnvelope &open, Mark mark, size_t count,
                     std::vector<QueuedRecipient> *all_out)
{
    RecipientReader reader(open.file.get(), open.envelope, mark);
    for (;;) {
        const auto batch = reader.next(count);
        if (!batch) return false;
        demand(batch->size() <= count);
        if (batch->empty()) return true;
        all_out->insert(all_out->end(), batch->begin(), batch->end());
    }
}

static void check_recipients(const Envelope &envelope, const std::string &contents,
                             const std::vector<QueuedRecipient> &recipients, Mark mark)
{
    off_t at = envelope.recipients_offset;
    for (const QueuedRecipient &recipient : recipients) {
        demand(recipient.mark_at >= at);
        at = recipient.mark_at + 1 + static_cast<off_t>(recipient.address.size());
        demand(at < envelope.message_offset);
        const size_t mark_at = static_cast<size_t>(recipient.mark_at);
        demand(contents[mark_at] == static_cast<char>(mark));
        demand(contents.compare(mark_at + 1, recipient.address.size(), recipient.address) == 0);
        demand(contents[static_cast<size_t>(at)] == '\n');
    }
}

/* Half of them are done: only their marks change. */
static void mark_some(const QueueFile &file, const OpenEnvelope &open, std::string contents,
                      const std::vector<QueuedRecipient> &recipients)
{
    std::vector<off_t> marks;
    for (size_t i = 0; i < recipients.size(); i += 2)
        marks.push_back(recipients[i].mark_at);
    demand(set_marks(open.file.get(), marks, Mark::done));
    for (const off_t at : marks)
        contents[static_cast<size_t>(at)] = static_cast<char>(Mark::done);
    demand(file.get() == contents);
}

/* The recipients with a mark, however they are taken.  Whether all could be read. */
static bool take(const OpenEnvelope &open, const std::string &contents, Mark mark,
                 std::vector<QueuedRecipient> *all_out)
{
    std::vector<QueuedRecipient> one_by_one;
    const bool whole = read_all(open, mark, 1, &one_by_one);
    demand(read_all(open, mark, 1000, all_out) == whole);
    check_recipients(open.envelope, contents, one_by_one, mark);
    check_recipients(open.envelope, contents, *all_out, mark);
    demand(!whole || all_out->size() == one_by_one.size());
    return whole;
}

static void use(const QueueFile &file, const OpenEnvelope &open)
{
    const Envelope &envelope = open.envelope;
    const std::string contents = file.get();
    demand(envelope.recipients_offset > 0);
    demand(envelope.recipients_offset <= envelope.message_offset);
    demand(envelope.message_offset + envelope.message_size == static_cast<off_t>(contents.size()));
    demand(envelope.sender.find('\n') == std::string::npos);
    demand(envelope.list.find('\n') == std::string::npos);
    std::vector<QueuedRecipient> todo, done, failed;
    (void)take(open, contents, Mark::done, &done);
    (void)take(open, contents, Mark::failed, &failed);
    if (take(open, contents, Mark::todo, &todo)) mark_some(file, open, contents, todo);
}

/* -- there and back -- */

struct Submission {
    std::string sender, list;
    std::vector<std::string_view> recipients;
    std::string_view message;
};

static Submission submission_of(std::string_view text)
{
    Submission submission;
    const auto take_line = [&text] {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
        return line;
    };
    const std::string_view sender = take_line(), list = take_line();
    if (usable_address(sender)) submission.sender = sender;
    if (usable_address(list)) submission.list = list;
    for (std::string_view line = take_line(); !line.empty(); line = take_line())
        if (usable_address(line)) submission.recipients.push_back(line);
    submission.message = text;
    return submission;
}

static void there_and_back(QueueFile *file, const Submission &submission, time_t created)
{
    file->put(compose_envelope(submission.sender, submission.list, created, submission.recipients,
                               static_cast<off_t>(submission.message.size())) +
              std::string(submission.message));
    const auto open = open_envelope(file->path());
    demand(open);
    demand(open->envelope.sender == submission.sender && open->envelope.list == submission.list);
    demand(open->envelope.created == created);
    demand(open->envelope.recipient_count == submission.recipients.size());
    std::vector<QueuedRecipient> todo;
    demand(take(*open, file->get(), Mark::todo, &todo));
    demand(todo.size() == submission.recipients.size());
    for (size_t i = 0; i < todo.size(); ++i)
        demand(todo[i].address == submission.recipients[i]);
    demand(file->get().substr(static_cast<size_t>(open->envelope.message_offset)) ==
           submission.message);
    use(*file, *open);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QueueFile file;
    static const QueueCalls unsynced = [] {
        QueueCalls calls = kernel_queue_calls;
        calls.fdatasync = [](int) { return 0; };
        return calls;
    }();
    queue_calls = &unsynced;
    if (size < 2 || size > 100000) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 2, size - 2);
    if (data[0] % 2 != 0) {
        there_and_back(&file, submission_of(text), static_cast<time_t>(data[1]) * 10000019);
        return 0;
    }
    file.put(text);
    const auto open = open_envelope(file.path());
    demand(open || open.error().code == EBADMSG);
    if (open) use(file, *open);
    return 0;
}
