/* Any text as the criteria of a search, over a few messages of every kind.  The first byte picks a
   charset, the second puts the text in parentheses when it is odd. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "fuzz/small_archive.h"
#include "mlist/mlist.h"

static const char *const messages[] = {
    "Subject: first\r\n\r\nremoved before the searches begin\r\n",
    "Subject: =?ISO-2022-JP?B?GyRCMnE1RBsoQg==?=\r\nDate: Sun, 15 Nov 2026 09:00:00 +0900\r\n"
    "Content-Type: text/plain; charset=iso-2022-jp\r\n\r\n\x1b$BK\\J8\x1b(B\r\n",
    "Subject: parts\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\none\r\n--b\r\n"
    "Content-Type: text/plain; charset=\"shift_jis\"\r\nContent-Transfer-Encoding: base64\r\n\r\n"
    "g0WDQoOT\r\n--b\r\nContent-Type: message/rfc822\r\n\r\nSubject: "
    "inner\r\n\r\ndeep\r\n--b--\r\n",
    "Content-Type: multipart/mixed\r\n\r\nno boundary",
    "no header at all",
};

/* The first message is gone: numbers and UIDs differ. */
static MailboxHandle *open_mailbox()
{
    static const uint32_t flags[] = {MESSAGE_DELETED, MESSAGE_SEEN, MESSAGE_FLAGGED,
                                     MESSAGE_ANSWERED | MESSAGE_MDNSENT, MESSAGE_DRAFT};
    for (size_t i = 0; i < sizeof(messages) / sizeof(messages[0]); ++i)
        demand(append_message(messages[i], flags[i]));
    MailboxHandle *handle = list_mbx_open(fuzz_mailbox().c_str(), MAILBOX_QUIET);
    demand(handle != nullptr);
    mlmbx_expunge(handle, 0);
    return handle;
}

struct Answer {
    int done;
    std::string text;
};

static Answer search(MailboxHandle *handle, const std::string &criteria, const char *charset,
                     int uid)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *memory = open_memstream(&text, &size);
    mlist_set_output(memory);
    const int done = mlmbx_search(handle, criteria.c_str(), charset, uid);
    mlist_set_output(nullptr);
    demand(fclose(memory) == 0);
    const Answer answer = {done, std::string(text, size)};
    free(text);
    return answer;
}

/* Numbers in their order, or nothing at all; as UIDs when the handle is given. */
static std::string line_of(const std::string &numbers, const MailboxHandle *uids)
{
    static const char prefix[] = "* SEARCH";
    demand(numbers.compare(0, strlen(prefix), prefix) == 0);
    demand(numbers.size() > 2 && numbers.compare(numbers.size() - 2, 2, "\r\n") == 0);
    std::string line = prefix;
    int last = 0;
    for (const char *at = numbers.c_str() + strlen(prefix); *at == ' ';) {
        char *end;
        const int sequence = static_cast<int>(strtol(at, &end, 10));
        demand(sequence > last && sequence <= 4);
        last = sequence;
        line += " " + std::to_string(uids->index[sequence].uid);
        at = end;
    }
    demand(last != 0);
    return line + "\r\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static MailboxHandle *const handle = open_mailbox();
    if (size < 2 || size > 5000) return 0;
    static const char *const charsets[] = {nullptr, "iso-2022-jp", "Shift_JIS", "euc-jp", ""};
    const char *charset = charsets[data[0] % (sizeof(charsets) / sizeof(charsets[0]))];
    std::string criteria(reinterpret_cast<const char *>(data) + 2, size - 2);
    if (data[1] % 2 != 0) criteria = "(" + criteria + ")";
    const Answer numbers = search(handle, criteria, charset, 0);
    const Answer uids = search(handle, criteria, charset, 1);
    demand(numbers.done == uids.done && (numbers.done == 0 || numbers.done == 1));
    demand(numbers.done == 1 || numbers.text.empty());
    demand(numbers.text.empty() ? uids.text.empty() : line_of(numbers.text, handle) == uids.text);
    demand(list_gettoken_astring(nullptr) == nullptr);
    return 0;
}
