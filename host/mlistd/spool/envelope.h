/* The file of one submission: who sends what to whom, and who is done.

   Layout, one after the other:
     mlist-queue 1
     message OFFSET SIZE        where the message lies in this file
     created SECONDS            since the epoch
     sender ADDRESS             empty: a bounce
     list LIST@DOMAIN
     recipients COUNT
     (empty line)
     MARKADDRESS                one line a recipient
     (empty lines up to OFFSET, a multiple of 4,096: file systems that can share blocks do)
     the message, SIZE bytes, as it was submitted
   MARK is one byte and the only thing that ever changes: "T" to do, "D" done, "F" failed for good
   and told to the owners.  The file's modification time is when it is due next. */
#ifndef HOST_MLISTD_SPOOL_ENVELOPE_H
#define HOST_MLISTD_SPOOL_ENVELOPE_H

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/fd.h"
#include "host/base/result.h"

struct Envelope {
    std::string sender;
    std::string list;
    time_t created = 0;
    uint64_t recipient_count = 0;
    off_t recipients_offset = 0;
    off_t message_offset = 0;
    off_t message_size = 0;
};

enum class Mark : char { todo = 'T', done = 'D', failed = 'F' };

struct QueuedRecipient {
    off_t mark_at; /* where in the file his mark is */
    std::string address;
};

/* Whether a text can stand in a queue file and in an SMTP command as an address. */
bool usable_address(std::string_view address);

/* Everything that comes before the message. */
std::string compose_envelope(const std::string &sender, const std::string &list, time_t created,
                             std::span<const std::string_view> recipients, off_t message_size);

/* Opens a submission for reading and marking; the error's code is ENOENT when it is gone, EBADMSG
   when the file is not a whole submission. */
struct OpenEnvelope {
    Fd file;
    Envelope envelope;
};
Result<OpenEnvelope> open_envelope(const std::string &path);

/* Walks the recipients with one mark, some at a time; memory depends on the batch only. */
class RecipientReader
{
  public:
    RecipientReader(int fd, const Envelope &envelope, Mark wanted = Mark::todo)
        : fd_(fd), wanted_(wanted), at_(envelope.recipients_offset), end_(envelope.message_offset)
    {
    }
    /* The next at most count of them; none: the end. */
    Result<std::vector<QueuedRecipient>> next(size_t count);

    /* Whether a line so far had no mark: nobody can tell who has the mail. */
    bool damaged() const { return damaged_; }

  private:
    Result<size_t> take_lines(std::string_view piece, size_t count,
                              std::vector<QueuedRecipient> &batch);

    const int fd_;
    const Mark wanted_;
    off_t at_;
    const off_t end_;
    bool damaged_ = false;
};

/* Changes the marks of these recipients (in file order) and syncs them. */
Result<void> set_marks(int fd, std::span<const off_t> marks_at, Mark mark);

#endif
