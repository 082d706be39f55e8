/* Any text as FETCH items, one a line, over messages that do not change: no item may spoil the
   response around it, and texts of the message are the same however they are asked for. */
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "mlist/mlist.h"

static void demand(bool condition)
{
    if (!condition) abort();
}

static void put_file(const std::string &path, const std::string &text)
{
    FILE *out = fopen(path.c_str(), "we");
    demand(out != nullptr && fwrite(text.data(), 1, text.size(), out) == text.size());
    demand(fclose(out) == 0);
}

static const char *const messages[] = {
    "Subject: plain\r\nTo: a@b\r\n\r\nhello\r\n",
    ("Subject: m\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nX: 1\r\n\r\none\r\n"
     "--b\r\nContent-Type: message/rfc822\r\n\r\nY: 2\r\n\r\ntwo\r\n--b--\r\n"),
    "Content-Type: multipart/mixed\r\n\r\nno boundary",
};

/* A mailbox of its own for this process, open; it is removed again at once but for what is open. */
static MailboxHandle *open_mailbox()
{
    char path[] = "/tmp/fuzz-fetch-XXXXXX";
    demand(mkdtemp(path) != nullptr);
    const std::string box = std::string(path) + "/INBOX";
    demand(mlmbx_create(box.c_str()) == 1);
    IndexHandle *batch = NO_INDEX_HANDLE;
    for (const char *message : messages) {
        const std::string source = std::string(path) + "/source";
        put_file(source, message);
        const char *text = strstr(message, "\r\n\r\n") + 4;
        batch =
            mbxappend(box.c_str(), batch, source.c_str(), 0, static_cast<uint32_t>(text - message),
                      static_cast<uint32_t>(strlen(message)), 1);
        demand(batch != NO_INDEX_HANDLE);
    }
    (void)mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0);
    static std::string kept = box;
    atexit([] {
        (void)mlmbx_delete(kept.c_str());
        (void)rmdir(kept.substr(0, kept.rfind('/')).c_str());
    });
    return list_mbx_open(box.c_str(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
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
