/* Any bytes as a mail to a list: a posting, or a command mail.  Whatever it is, the module answers
   as it promises, what the archive has stays, a posting is archived as it is handed over, with the
   next number, a command touches nobody but its sender, and nothing is left behind.
   The first two bytes choose the list's settings and the way in; with an odd third byte the rest is
   the mail as it is, else its lines end as a host hands them over. */
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <set>

#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "store/file.h"
#include "tests/support/own_request.h"

static const char roster[] = "alice@example.net ON \r\nbob@example.jp OFF\r\ncarol@x DGT\r\n";

/* -- the host -- */

static struct Host {
    long live_blocks = 0;
    struct Mail {
        std::string text;
        bool distributed; /* to the members who receive */
    };
    std::vector<Mail> mails;
    std::deque<std::string> kept; /* what was kept stays where it is */
} host;

static int submit(const char *file, const char *sender, const char *const *recipients,
                  const char *recipient_file, char *)
{
    demand(strcmp(sender, "owner-mylist@example.jp") == 0);
    demand(recipients != nullptr || recipient_file != nullptr);
    const bool distributed = recipient_file != nullptr && recipient_file[0] == '/';
    if (distributed) demand(read_file(recipient_file) == "alice@example.net\r\n");
    host.mails.push_back({read_file(file), distributed});
    return 1;
}

static void *allocate(size_t size)
{
    ++host.live_blocks;
    return malloc(size);
}

static void release(void *memory)
{
    --host.live_blocks;
    free(memory);
}

static char *keep_text(const char *text)
{
    return host.kept.emplace_back(text).data();
}

/* -- the list -- */

static std::string settings_of(uint8_t choice)
{
    static const char *const rows[] = {"vstrml=grant\r\nvstrc=part\r\njournal=4\r\n",
                                       "vstrml=deny\r\nvstrc=deny\r\njournal=0\r\n",
                                       "vstrml=grant\r\nvstrc=grant\r\njournal=1\r\n",
                                       "vstrml=deny\r\nvstrc=part\r\njournal=100\r\n"};
    std::string text = "cmd=on on on on on on on on on on\r\nsubjectf=[%M:%0S]\r\ndefstatus=1\r\n";
    text += rows[choice & 3];
    text += (choice & 4) != 0 ? "subject=edit\r\n" : "subject=noedit\r\n";
    text += (choice & 8) != 0 ? "confirm=3\r\n" : "confirm=0\r\n";
    text += (choice & 16) != 0 ? "replyedit=change\r\nreplyto=r@x\r\n" : "replyedit=add\r\n";
    text += (choice & 32) != 0 ? "maxmsgsize=1\r\n" : "maxmsgsize=0\r\n";
    text += (choice & 64) != 0 ? "maxsummary=2\r\n" : "maxsummary=500\r\n";
    return text;
}

class Bench
{
  public:
    Bench()
    {
        demand(mlmbx_create(quick_.list.box().c_str()) == 1);
        IndexHandle *batch = NO_INDEX_HANDLE;
        for (int i = 0; i < 3; ++i) {
            quick_.list.put("message", archived);
            batch = list_mbx_append(quick_.list.box().c_str(), batch,
                                    quick_.list.control("message").c_str(), 0,
                                    static_cast<uint32_t>(archived.find("\r\n\r\n") + 4),
                                    static_cast<uint32_t>(archived.size()), 1);
        }
        (void)list_mbx_append(nullptr, batch, nullptr, 0, 0, 0, 0);
        index_ = read_file(quick_.list.box("#mix"));
    }

    /* Everything as it was before the first input. */
    void reset(uint8_t choice)
    {
        write_file(quick_.list.box("#mix"), index_);
        for (const std::string &name : list_directory(quick_.list.box("#msg")))
            unlink(quick_.list.box("#msg/" + name).c_str());
        for (int uid = 1; uid <= 3; ++uid)
            write_file(message_file(uid), archived);
        quick_.list.put("init", settings_of(choice));
        quick_.list.put("member", roster);
        quick_.list.put("active", "alice@example.net\r\n");
        quick_.list.put("digest", "carol@x\r\n");
        quick_.list.put("confirm", "erin@x 9999/00/01:00:00 0123456789ABCDEF\r\n");
        quick_.list.put("dgtstat", "1-2");
        const char *banner = (choice & 128) != 0 ? "-- \nthe list\n" : "";
        quick_.list.put("msg/bnrtop.txt", banner);
        quick_.list.put("msg/bnrbtmj.txt", banner);
        ml_maxmsgsize = choice >> 5 & 1;
    }

    int deliver(const std::string &mail, bool command)
    {
        const std::string file = quick_.list.control("message");
        write_file(file, mail);
        memset(own_.reply_text, 'x', sizeof(own_.reply_text));
        host.mails.clear();
        host.kept.clear();
        const int code =
            own_.deliver(ModuleMain, file, "example.jp", arguments_for("mylist", command));
        unlink(file.c_str());
        return code;
    }

    void check_answer(int code)
    {
        demand(code == MLIST_EXIT_ACCEPTED || code == MLIST_EXIT_REFUSED);
        demand(memchr(own_.reply_text, '\0', sizeof(own_.reply_text)) != nullptr);
        demand(code == MLIST_EXIT_ACCEPTED || own_.reply_text[0] != '\0');
        demand(host.live_blocks == 0);
    }

    void check_archive(int code, uint8_t choice, bool host_form)
    {
        static const uint32_t kept[] = {4, 0, 1, 100};
        MailboxHandle *box = list_mbx_open(quick_.list.box().c_str(), MAILBOX_QUIET);
        demand(box != nullptr);
        const bool posted = box->index[0].uid == 5;
        demand(posted || box->index[0].uid == 4);
        demand(posted == (code == MLIST_EXIT_ACCEPTED &&
                          std::any_of(host.mails.begin(), host.mails.end(),
                                      [](const Host::Mail &mail) { return mail.distributed; })));
        const uint32_t count = box->index[0].header_size - 1;
        demand(count == (posted ? std::min(4u, kept[choice & 3]) : 3u));
        for (uint32_t i = 1; i <= count; ++i)
            check_message(box->index[i], posted ? 5 - count + i - 1 : i, host_form);
        list_mbx_close(box);
        demand(list_directory(quick_.list.box("#msg")).size() == count);
    }

    /* The sender's line at most is another, and what is derived from the roster agrees with it. */
    void check_roster()
    {
        std::multiset<std::string> before, after, gone, come;
        for (const std::string &line : pieces_of(roster))
            before.insert(line);
        std::string active, digest;
        for (const std::string &line : pieces_of(quick_.list.get("member"))) {
            after.insert(line);
            const Member member = member_of(line);
            if (member.status == 1) active += member.address + "\r\n";
            if (member.status == 3) digest += member.address + "\r\n";
        }
        std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                            std::inserter(gone, gone.end()));
        std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                            std::inserter(come, come.end()));
        /* a name with blanks is nobody's address: it joins as often as it asks to, unless the host
           refuses its mail */
        std::erase_if(come, [](const std::string &line) {
            return line.find(' ') != line.find_last_of(' ', line.size() - 4);
        });
        demand(gone.size() <= 1 && come.size() <= 1);
        demand(quick_.list.get("active") == active && quick_.list.get("digest") == digest);
    }

    void check_nothing_left()
    {
        for (const std::string &name : list_directory(quick_.list.control()))
            demand(!name.ends_with(".new") && !name.ends_with(".old"));
        demand(list_directory(quick_.list.box()).size() == 2);
    }

  private:
    static const std::string archived;

    std::string message_file(uint32_t uid) const
    {
        return quick_.list.box("#msg/" + std::to_string(uid));
    }

    void check_message(const IndexRecord &record, uint32_t uid, bool host_form)
    {
        demand(record.uid == uid);
        const std::string text = read_file(message_file(uid));
        demand(text.size() == record.size);
        if (uid < 4) demand(text == archived);
        if (uid < 4) return;
        demand(text == host.mails.back().text);
        /* a line end counts as CR LF, which is what a host hands over */
        demand(!host_form || text.substr(0, record.header_size).ends_with("\r\n\r\n"));
    }

    QuickList quick_;
    std::string index_;
    OwnRequest own_{{submit, keep_text, allocate, release}};
};

const std::string Bench::archived = "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\nFrom: a@b\r\n"
                                    "Subject: =?ISO-2022-JP?B?GyRCJEYkOSRIGyhC?=\r\n\r\nText.\r\n";

/* As a host hands a mail over: lines end in CR LF, no zero bytes, a header that ends. */
static std::string as_host(const std::string &text)
{
    std::string mail;
    for (const char c : text) {
        if (c == '\n') mail += '\r';
        if (c != '\r' && c != '\0') mail += c;
    }
    if (!mail.ends_with("\r\n")) mail += "\r\n";
    if (mail.find("\r\n\r\n") == std::string::npos && !mail.starts_with("\r\n")) mail += "\r\n";
    return mail;
}

/* The number that the next descriptor would get. */
static int next_descriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Bench bench;
    if (size < 3 || size > 100000) return 0;
    const std::string text(reinterpret_cast<const char *>(data + 3), size - 3);
    bench.reset(data[0]);
    const int descriptor = next_descriptor();
    const bool host_form = data[2] % 2 == 0;
    const int code = bench.deliver(host_form ? as_host(text) : text, data[1] % 2 != 0);
    demand(next_descriptor() == descriptor);
    bench.check_answer(code);
    bench.check_archive(code, data[0], host_form);
    bench.check_roster();
    bench.check_nothing_left();
    return 0;
}
