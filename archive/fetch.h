/* FETCH, inside; the contract is mlist/fetch.h. */
#ifndef ARCHIVE_FETCH_H
#define ARCHIVE_FETCH_H

#include <stdint.h>

#include "archive/growing.h"
#include "archive/message_bytes.h"
#include "archive/mime.h"
#include "module/guards.h"

/* -- the message parsed last (mbx_fetch_cache.cpp) -- */
struct MessageCache {
    int sequence; /* its number in the handle's view */
    FdGuard file;
    MessageBytes bytes;
    PartNode *parts; /* null (logged): it cannot be parsed */

    MessageCache(int at, int fd, const IndexRecord &record);
    ~MessageCache() { list_freemime(parts); }
    MessageCache(const MessageCache &) = delete;
    MessageCache &operator=(const MessageCache &) = delete;
};

/* What FETCH holds of a message at most. */
#define FETCH_HELD_SIZE 16384

/* The file of a message for a scope: the cache's, or opened and closed here. */
class MessageFile
{
  public:
    MessageFile(const MailboxHandle *handle, int sequence);
    MessageFile(const MessageFile &) = delete;
    MessageFile &operator=(const MessageFile &) = delete;
    bool is_open() const { return bytes_->fd() >= 0; }
    int fd() const { return bytes_->fd(); }
    MessageBytes *bytes() { return bytes_; }

  private:
    FdGuard own_file_;
    MessageBytes own_bytes_;
    MessageBytes *bytes_;
};

/* The message's record in the handle's view; for a number that has none, that of a vanished one. */
const IndexRecord *message_record(const MailboxHandle *handle, int sequence);

/* Opens a message file for reading: a descriptor, or -1 with errno. */
[[nodiscard]] int open_message(const MailboxHandle *handle, int sequence);

/* The directory of the message files, open for one operation: a name in it is found without walking
   the whole path again. */
class MessageDirectory
{
  public:
    explicit MessageDirectory(const char *path) : path_(path), directory_(-1) {}

    /* As open_message(). */
    [[nodiscard]] int open_message(uint32_t uid);

  private:
    void open();

    const char *path_; /* of the mailbox */
    FdGuard directory_;
    bool tried_ = false;
};

/* The parts of a message of the index; null (logged). */
[[nodiscard]] PartNode *parse_message(MessageBytes *bytes, const IndexRecord &record);

/* Tells that a message file could not be opened; errno says why. */
void log_not_opened();

/* Bytes of the text, as the index has it. */
inline uint32_t text_size(const IndexRecord *record)
{
    return record->size > record->header_size ? record->size - record->header_size : 0;
}

/* -- items, one each (mbx_fetch_item.cpp): name and value to the sink -- */
using ItemWriter = void (*)(MailboxHandle *handle, int sequence);

void print_flags(MailboxHandle *handle, int sequence);
void print_internaldate(MailboxHandle *handle, int sequence);
void print_rfc822(MailboxHandle *handle, int sequence);
void print_rfc822_header(MailboxHandle *handle, int sequence);
void print_rfc822_text(MailboxHandle *handle, int sequence);
void print_rfc822_size(MailboxHandle *handle, int sequence);
void print_uid(MailboxHandle *handle, int sequence);
void print_envelope(MailboxHandle *handle, int sequence);
void print_body(MailboxHandle *handle, int sequence);
void print_bodystructure(MailboxHandle *handle, int sequence);

/* What every operation on a handle begins with: a lock that a check left behind is given up, so
   that nothing is printed under it. */
void begin_operation(MailboxHandle *handle);

/* The same for a section item (mbx_fetch_section.cpp). */
void print_section_item(MailboxHandle *handle, int sequence, const char *section);

/* -- bulk text (mbx_fetch_stream.cpp) -- */
#define WHOLE_FILE UINT64_MAX /* as a length */

/* Sends what the file has of the range, in reads of 8,188 bytes; of each only what comes before its
   first NUL.  end: where the file ends by the index. */
void send_range(int fd, uint64_t start, uint64_t length, uint64_t end);

/* Sends what the file has of the range, up to the first NUL. */
void send_text(int fd, uint64_t start, uint64_t length);

/* -- header field lists (mbx_fetch_fields.cpp) -- */

/* Where the list of a section "HEADER.FIELDS (...)" begins. */
#define FIELDS_KEYWORD "HEADER.FIELDS"
#define FIELDS_NOT_KEYWORD "HEADER.FIELDS.NOT"

enum class FieldFilter { NONE, KEEP, DROP };

/* Which filter a section that begins with "H" asks for, and the text of its list; the text is ""
   where none follows. */
FieldFilter field_filter(const char *section, const char **list_out);

/* The header with only the listed fields and an empty line, or without them.  False without
   memory. */
[[nodiscard]] bool filter_fields(FieldFilter filter, char *const *names, size_t count,
                                 const char *header, GrowingText *out);

#endif
