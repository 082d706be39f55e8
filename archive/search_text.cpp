/* Text keys: TEXT and BODY over the parts of a message, and header fields. */
#include <stdio.h>
#include <string.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "archive/search.h"
#include "module/ascii.h"
#include "module/guards.h"
#include "module/host_functions.h"
#include "module/host_mem.h"
#include "module/unix_sv.h"
#include "store/str.h"

using Convert = bool (*)(const char *, size_t, GrowingText *);

/* -- what is looked for -- */

static Convert convert_of_criterion(const char *charset)
{
    if (charset == nullptr || same_text_nocase(charset, "shift_jis")) return search_sjis2euc;
    if (same_text_nocase(charset, "iso-2022-jp")) return search_jis2euc;
    return search_euc2euc;
}

static bool contains(const GrowingText &text, const GrowingText &wanted)
{
    if (wanted.count() == 0) return true;
    if (text.count() == 0) return false;
    return memmem(text.items(), text.count(), wanted.items(), wanted.count()) != nullptr;
}

/* -- one message at a time -- */

/* A message's file and parts for a scope.  Parts that were made are kept for further keys. */
class ParsedMessage
{
  public:
    ParsedMessage(Search *search, int sequence) : search_(search), sequence_(sequence)
    {
        if (kept_tree() != nullptr)
            reopen();
        else
            parse();
    }
    ~ParsedMessage()
    {
        const FdGuard close_file(fd_);
        if (own_) list_freemime(parts_);
    }
    ParsedMessage(const ParsedMessage &) = delete;
    ParsedMessage &operator=(const ParsedMessage &) = delete;
    int fd() const { return fd_; }
    const PartNode *parts() const { return parts_; } /* null: it cannot be read */

  private:
    PartNode *kept_tree() const
    {
        const uint32_t at = static_cast<uint32_t>(sequence_);
        return search_->trees != nullptr && at < search_->tree_count ? search_->trees[at] : nullptr;
    }

    void reopen()
    {
        fd_ = open_message(search_->handle, sequence_);
        if (fd_ >= 0)
            parts_ = kept_tree();
        else
            trace_sys(&g_logh, 3, 626, "mbx_getcache: fopen err %m");
    }

    void parse()
    {
        MailboxHandle *handle = search_->handle;
        if (!list_mbx_getcache(handle, sequence_)) return;
        fd_ = handle->cache->fd;
        parts_ = handle->cache->parts;
        handle->cache->fd = -1;
        handle->cache->parts = nullptr;
        list_mbx_freecache(handle);
        own_ = !keep_tree();
    }

    bool keep_tree()
    {
        if (!search_->keep_trees) return false;
        const uint32_t count = record_count(search_->handle->index);
        const uint32_t limit = count < SEARCH_MAX_TREES ? count : SEARCH_MAX_TREES;
        if (search_->trees == nullptr) {
            search_->trees = static_cast<PartNode **>(host_allocate(limit * sizeof(void *)));
            if (search_->trees == nullptr) return false;
            memset(static_cast<void *>(search_->trees), 0, limit * sizeof(void *));
            search_->tree_count = limit;
        }
        if (static_cast<uint32_t>(sequence_) >= search_->tree_count) return false;
        search_->trees[sequence_] = parts_;
        return true;
    }

    Search *search_;
    int sequence_;
    int fd_ = -1;
    PartNode *parts_ = nullptr;
    bool own_ = false;
};

#define WHOLE_READ_SIZE (256 * 1024) /* files up to here are read at once */

/* The bytes of a message file, by ranges. */
class MessageBytes
{
  public:
    explicit MessageBytes(int fd) : fd_(fd), size_(bytes_there(fd, 0, UINT64_MAX)) {}
    ~MessageBytes() { host_release(block_); }
    MessageBytes(const MessageBytes &) = delete;
    MessageBytes &operator=(const MessageBytes &) = delete;

    /* What the file has of a range, until the next call.  Null without memory or on a read
       error. */
    const char *range(uint64_t start, uint64_t length, size_t *size_out)
    {
        if (start > size_) start = size_;
        *size_out = static_cast<size_t>(length < size_ - start ? length : size_ - start);
        if (size_ > WHOLE_READ_SIZE) return read(start, *size_out);
        const char *whole = block_ != nullptr ? block_ : read(0, static_cast<size_t>(size_));
        return whole != nullptr ? whole + start : nullptr;
    }

  private:
    const char *read(uint64_t start, size_t size)
    {
        host_release(block_);
        block_ = read_to_memory(fd_, static_cast<off_t>(start), size);
        return block_;
    }

    int fd_;
    uint64_t size_;
    char *block_ = nullptr;
};

/* -- TEXT and BODY -- */

static bool header_contains(MessageBytes *bytes, const PartNode *part, const GrowingText &wanted)
{
    size_t size = 0;
    const char *header = bytes->range(part->start, part->header_length, &size);
    GrowingText decoded;
    if (header == nullptr || !search_mime_decode(header, size, &decoded)) return false;
    return contains(decoded, wanted);
}

static const struct {
    const char *charset;
    Convert convert;
} body_charsets[] = {
    {"iso-2022-jp", search_jis2euc}, {"shift_jis", search_sjis2euc}, {"x-sjis", search_sjis2euc},
    {"sjis", search_sjis2euc},       {"shift-jis", search_sjis2euc}, {"euc-jp", search_euc2euc},
    {"us-ascii", search_euc2euc},
};

static const char *find_nocase(const char *text, const char *pattern)
{
    for (; *text != '\0'; ++text)
        if (begins_nocase(text, pattern)) return text;
    return nullptr;
}

/* How a body of this type is compared; null: not at all. */
static Convert convert_of_body(const char *content_type)
{
    const char *charset = content_type != nullptr ? find_nocase(content_type, "charset=") : nullptr;
    if (charset == nullptr) return search_jis2euc;
    charset += strlen("charset=");
    if (*charset == '"') ++charset;
    const size_t length = strcspn(charset, "\"; \t");
    for (const auto &row : body_charsets)
        if (strlen(row.charset) == length && same_bytes_nocase(charset, row.charset, length))
            return row.convert;
    return nullptr;
}

static bool has_searched_body(const PartNode *part)
{
    return part->content_type == nullptr || begins_nocase(part->content_type, "text/") ||
           begins_nocase(part->content_type, "message/");
}

static bool is_base64(const PartNode *part)
{
    return part->transfer_encoding != nullptr && begins_nocase(part->transfer_encoding, "base64") &&
           part->transfer_encoding[6 + strspn(part->transfer_encoding + 6, " \t")] == '\0';
}

static bool body_contains(MessageBytes *bytes, const PartNode *part, const GrowingText &wanted)
{
    const Convert convert = convert_of_body(part->content_type);
    if (convert == nullptr) return false;
    size_t size = 0;
    const char *raw =
        bytes->range(uint64_t{part->start} + part->header_length, part->body_length, &size);
    if (raw == nullptr) return false;
    GrowingText decoded, text;
    if (!is_base64(part)) return convert(raw, size, &text) && contains(text, wanted);
    if (!search_b64_dec(raw, size, &decoded)) return false;
    return convert(decoded.items(), decoded.count(), &text) && contains(text, wanted);
}

static bool is_message(const PartNode *part)
{
    return part->content_type != nullptr && begins_nocase(part->content_type, "message/rfc822");
}

/* Walks the parts in order; the depth of a tree is bounded. */
static bool part_contains(MessageBytes *bytes, const PartNode *part, const GrowingText &wanted,
                          bool headers)
{
    if (part == nullptr) return false;
    const PartNode *headed = is_message(part) ? part->enclosed : part;
    if (headers && headed != nullptr && header_contains(bytes, headed, wanted)) return true;
    if (has_searched_body(part) && body_contains(bytes, part, wanted)) return true;
    for (uint32_t i = 0; i < part->child_count; ++i)
        if (part_contains(bytes, part->children[i], wanted, headers)) return true;
    return false;
}

/* -- header fields -- */

#define FIELD_PREFIX_SIZE 127
#define SMALL_HEADER_SIZE (64 * 1024) /* up to here the index is believed without a look */

static char *read_fields(int fd, uint32_t size)
{
    return size <= SMALL_HEADER_SIZE ? read_to_memory(fd, 0, size) : read_header(fd, 0, size);
}

static bool field_contains(int fd, uint32_t header_size, const char *prefix,
                           const GrowingText &wanted)
{
    const HostPtr<char> header(read_fields(fd, header_size));
    if (header.p == nullptr) return false;
    FieldCursor fields;
    start_fields(&fields, header.p);
    while (char *field = next_field(&fields)) {
        const char *value = field_value(field, prefix);
        if (value == nullptr) continue;
        GrowingText decoded;
        if (search_mime_decode(value, strlen(value), &decoded) && contains(decoded, wanted))
            return true;
    }
    return false;
}

/* -- the keys -- */

/* Keeps the messages for which test(message, sequence) is true. */
template <class Test>
static SearchEntry *filter_by_text(Search *search, SearchEntry *set, const char *wanted, Test test)
{
    GrowingText converted;
    if (!convert_of_criterion(search->charset)(wanted, strlen(wanted), &converted))
        return search_error(search);
    return filter_set(set, [&](int s) {
        const ParsedMessage message(search, s);
        return message.parts() != nullptr && test(message, s, converted);
    });
}

SearchEntry *search_text(Search *search, SearchEntry *set, char *wanted)
{
    return filter_by_text(search, set, wanted,
                          [](const ParsedMessage &message, int, const GrowingText &text) {
                              MessageBytes bytes(message.fd());
                              return part_contains(&bytes, message.parts(), text, true);
                          });
}

SearchEntry *search_body(Search *search, SearchEntry *set, char *wanted)
{
    return filter_by_text(search, set, wanted,
                          [](const ParsedMessage &message, int, const GrowingText &text) {
                              MessageBytes bytes(message.fd());
                              return part_contains(&bytes, message.parts(), text, false);
                          });
}

SearchEntry *search_header(Search *search, SearchEntry *set, const char *field, char *wanted)
{
    char prefix[FIELD_PREFIX_SIZE];
    snprintf_(prefix, sizeof(prefix), "%s: ", field);
    return filter_by_text(
        search, set, wanted, [&](const ParsedMessage &message, int s, const GrowingText &text) {
            const uint32_t header_size = message_record(search->handle, s)->header_size;
            return field_contains(message.fd(), header_size, prefix, text);
        });
}
