/* Command lines through command_proc(), over a list with an archive.  The first byte chooses who
   sends them and the list's settings. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "commands/cmd.h"
#include "commands/reply_text.h"
#include "fuzz/quick_list.h"
#include "mlist/mlist.h"
#include "store/file.h"
#include "tests/support/own_request.h"

static const char roster[] = "alice@example.net ON \r\nbob@example.jp OFF\r\ncarol@x DGT\r\n";
static const char confirmations[] = "erin@x 9999/00/01:00:00 0123456789ABCDEF\r\n";

/* Every line is answered once at most, by a mail that begins and ends as a reply does. */
static int answers;

static int submit(const char *file, const char *, const char *const *, const char *numbers, char *)
{
    const std::string mail = read_file(file);
    if (!mail.starts_with("From: mylist")) abort();
    if (numbers == nullptr && mail.find("\r\n-\r\n") == std::string::npos) abort();
    ++answers;
    return 1;
}

/* A host, a list and an archive of a few messages for all inputs. */
class Bench
{
  public:
    Bench()
    {
        tcbcreate(&own_.request);
        root_ = list_.root() + "/control";
        fixed_control_root = root_.c_str();
        archive();
    }

    void prepare(uint8_t choice)
    {
        static const char *const senders[] = {"alice@example.net",
                                              "bob@example.jp",
                                              "dora@example.com",
                                              "erin@x",
                                              "owner-mylist@x",
                                              "a b%s@x",
                                              "",
                                              "MAILER-DAEMON@x"};
        list_.put("member", roster);
        list_.put("active", "alice@example.net\r\n");
        list_.put("digest", "carol@x\r\n");
        list_.put("confirm", confirmations);
        list_.put("dgtstat", "1-2,4");
        DeliveryJob *job = list_.job();
        job->submit = submit;
        strcpy(job->message_id, "c1@example.com");
        strcpy(job->sender, senders[choice & 7]);
        job->settings.confirmation = choice >> 3 & 1;
        job->settings.size_limit = choice >> 4 & 1;
        job->settings.nonmember_command_mask = choice >> 5 & 1 ? 1847u : ALL_COMMANDS;
        own_.reply_text[0] = '\0';
    }

    void run(const std::string &line)
    {
        char member[LINE_SIZE];
        if (get_member(list_.job(), list_.job()->sender, member) < 0) abort();
        list_.job()->access_result = member[0] != '\0';
        answers = 0;
        if (command_proc(line.c_str(), list_.job()) != 1) abort(); /* nothing is wrong here */
        if (answers > 4) abort();                                  /* more mails than messages */
        if (list_.job()->mailbox != nullptr) abort();
    }

    /* Whoever is not the sender is where they were. */
    void demand_whole_roster()
    {
        const std::string members = list_.get("member");
        if (members.find("carol@x DGT\r\n") == std::string::npos) abort();
        if (!members.ends_with("\r\n")) abort();
        if (own_.reply_text[0] != '\0') abort();
    }

  private:
    void archive()
    {
        const std::string box = list_.box();
        if (mlmbx_create(box.c_str()) != 1) abort();
        IndexHandle *batch = NO_INDEX_HANDLE;
        for (int number = 1; number <= 4; ++number) {
            const std::string path = list_.root() + "/message",
                              text = "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\nFrom: a@b\r\n"
                                     "Subject: =?ISO-2022-JP?B?GyRCJEYkOSRIGyhC?=\r\n\r\nText.\r\n";
            write_file(path, text);
            batch = list_mbx_append(box.c_str(), batch, path.c_str(), 0,
                                    static_cast<uint32_t>(text.size() - 7),
                                    static_cast<uint32_t>(text.size()), 1);
        }
        (void)list_mbx_append(nullptr, batch, nullptr, 0, 0, 0, 0);
    }

    QuickList quick_;
    TempList &list_ = quick_.list;
    std::string root_;
    OwnRequest own_{{submit, strdup}};
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Bench bench; /* its directory goes with the process */
    if (size < 1) return 0;
    bench.prepare(data[0]);
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    for (int lines = 0; lines < 4 && !text.empty(); ++lines) {
        size_t end = text.find('\n');
        end = end == std::string::npos ? text.size() : end + 1;
        if (end > 1024) end = 1024;
        const std::string line = text.substr(0, end);
        bench.run(line);
        /* What is no command as it stands is one behind a hash sign, and an argument of any. */
        if (line[0] != '#') bench.run("#" + line.substr(0, 1023));
        const char *word = g_str_cmd[static_cast<uint8_t>(line[0]) % 11];
        bench.run("# " + std::string(word) + " " + line.substr(0, 1000));
        text.erase(0, end);
    }
    bench.demand_whole_roster();
    return 0;
}
