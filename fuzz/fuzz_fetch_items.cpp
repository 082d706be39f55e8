/* Any text as FETCH items, one a line, over messages that do not change: no item may spoil the
   response around it, or make it longer than the messages are. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/small_archive.h"
#include "mlist/mlist.h"

static const char *const messages[] = {
    "Subject: plain\r\nTo: a@b\r\n\r\nhello\r\n",
    ("Subject: m\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nX: 1\r\n\r\none\r\n"
     "--b\r\nContent-Type: message/rfc822\r\n\r\nY: 2\r\n\r\ntwo\r\n--b--\r\n"),
    "Content-Type: multipart/mixed\r\n\r\nno boundary",
};

static MailboxHandle *open_mailbox()
{
    for (const char *message : messages)
        demand(append_message(message, 0));
    return list_mbx_open(fuzz_mailbox().c_str(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
}

static std::string fetch(MailboxHandle *handle, int sequence, char **items)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *memory = open_memstream(&text, &size);
    mlist_set_output(memory);
    mlmbx_fetch(handle, sequence, items);
    fclose(memory);
    const std::string answer(text, size);
    free(text);
    return answer;
}

static std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t from = 0; from < text.size() && lines.size() < 8;) {
        const size_t end = std::min(text.find('\n', from), text.size());
        lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return lines;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static MailboxHandle *const handle = open_mailbox();
    demand(handle != nullptr);
    const std::string whole(reinterpret_cast<const char *>(data), size);
    std::vector<std::string> lines = lines_of(whole.substr(0, strlen(whole.c_str())));
    std::vector<char *> items;
    for (std::string &line : lines)
        items.push_back(line.data());
    items.push_back(nullptr);
    for (int sequence = 0; sequence <= 4; ++sequence) {
        const std::string answer = fetch(handle, sequence, items.data());
        demand(answer.compare(0, 2, "* ") == 0);
        demand(answer.compare(answer.size() - 2, 2, "\r\n") == 0);
        demand(answer.size() < 1000 + 30 * size + 8 * 700);
    }
    return 0;
}
