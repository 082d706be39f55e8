/* Text keys: TEXT and BODY over the parts of a message, and header fields. */
#include <stdio.h>
#include <string.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "archive/search.h"
#include "module/ascii.h"
#include "module/guards.h"
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
    ParsedMessage(Search *search, int sequence, uint32_t most_held)
        : search_(search), sequence_(sequence), record_(*message_record(search->handle, sequence)),
          file_(search->directory.open_message(record_.uid)), bytes_(file_.fd, record_, most_held)
    {
        if (file_.fd < 0) {
            log_not_opened();
            return;
        }
        parts_ = kept_tree();
        if (parts_ != nullptr) return;
        parts_ = parse_message(&bytes_, record_);
        own_ = !keep_tree();
    }
    ~ParsedMessage()
    {
        if (own_) list_freemime(parts_);
    }
    ParsedMessage(const ParsedMessage &) = delete;
    ParsedMessage &operator=(const ParsedMessage &) = delete;
    const PartNode *parts() const { return parts_; } /* null: it cannot be read */
    MessageBytes *bytes() { return &bytes_; }
    uint32_t header_size() const { return record_.header_size; }

  private:
    PartNode *kept_tree() const
    {
        const uint32_t at = static_cast<uint32_t>(sequence_);
        return search_->trees != nullptr && at < search_->tree_count ? search_->trees[at] : nullptr;
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
    const IndexRecord &record_;
    FdGuard file_;
    MessageBytes bytes_;
    PartNode *parts_ = nullptr;
    bool own_ = false;
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

static bool field_contains(MessageBytes *bytes, uint32_t header_size, const char *prefix,
                           const GrowingText &wanted)
{
    const HostPtr<char> header(bytes->text(0, header_size));
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

/* What a search holds of a message at most. */
#define HELD_FOR_BODIES (256 * 1024)
#define HELD_FOR_HEADERS (16 * 1024)

/* Keeps the messages for which test(message, text) is true. */
template <class Test>
static SearchEntry *filter_by_text(Search *search, SearchEntry *set, const char *wanted,
                                   uint32_t most_held, Test test)
{
    GrowingText converted;
    if (!convert_of_criterion(search->charset)(wanted, strlen(wanted), &converted))
        return search_error(search);
    return filter_set(set, [&](int s) {
        ParsedMessage message(search, s, most_held);
        return message.parts() != nullptr && test(&message, converted);
    });
}

SearchEntry *search_text(Search *search, SearchEntry *set, char *wanted)
{
    return filter_by_text(search, set, wanted, HELD_FOR_BODIES,
                          [](ParsedMessage *message, const GrowingText &text) {
                              return part_contains(message->bytes(), message->parts(), text, true);
                          });
}

SearchEntry *search_body(Search *search, SearchEntry *set, char *wanted)
{
    return filter_by_text(search, set, wanted, HELD_FOR_BODIES,
                          [](ParsedMessage *message, const GrowingText &text) {
                              return part_contains(message->bytes(), message->parts(), text, false);
                          });
}

SearchEntry *search_header(Search *search, SearchEntry *set, const char *field, char *wanted)
{
    char prefix[FIELD_PREFIX_SIZE];
    snprintf_(prefix, sizeof(prefix), "%s: ", field);
    return filter_by_text(search, set, wanted, HELD_FOR_HEADERS,
                          [&](ParsedMessage *message, const GrowingText &text) {
                              return field_contains(message->bytes(), message->header_size(),
                                                    prefix, text);
                          });
}
