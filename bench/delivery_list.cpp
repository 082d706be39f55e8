#include "bench/delivery_list.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "mlist/mlist.h"
#include "store/file.h"
#include "tests/support/own_request.h"

namespace fs = std::filesystem;

#define MAIL_SIZE 4096
#define UIDVALIDITY 1794701640

[[noreturn]] static void give_up(const std::string &what)
{
    fprintf(stderr, "%s: %s\n", what.c_str(), strerror(errno));
    exit(1);
}

static void write_whole(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) give_up(path);
}

WorkDirectory::WorkDirectory(const std::string &below) : path_(below + "/mlist-bench-XXXXXX")
{
    if (mkdtemp(path_.data()) == nullptr) give_up(path_);
}

WorkDirectory::~WorkDirectory()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

/* -- the list -- */

std::string DeliveryList::control(const std::string &name) const
{
    return directory_ + "/control/example.jp/mylist/" + name;
}

std::string DeliveryList::box(const std::string &name) const
{
    return directory_ + "/box/example.jp/mylist/INBOX/" + name;
}

static std::string mail()
{
    std::string text = "Received: from mx.example.net by ml.example.jp with LMTP\r\n"
                       "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\n"
                       "From: Alice Example <alice@example.net>\r\n"
                       "To: mylist@example.jp\r\n"
                       "Subject: Hello\r\n"
                       "Message-ID: <a1@example.net>\r\n"
                       "Mime-Version: 1.0\r\n"
                       "Content-Type: text/plain; charset=us-ascii\r\n\r\n";
    while (text.size() + 72 < MAIL_SIZE)
        text += std::string(70, 'x') + "\r\n";
    return text + std::string(MAIL_SIZE - text.size() - 2, 'x') + "\r\n";
}

DeliveryList::DeliveryList(const std::string &directory)
    : directory_(directory), message_(directory + "/message")
{
    snprintf(g_path_mlist, 1024, "%s/control", directory.c_str());
    snprintf(g_mbox_list, 1024, "%s/box", directory.c_str());
    default_settings(&g_mlit);
    for (const std::string &name : {control("msg"), control("jnl"), box("#msg")})
        fs::create_directories(name);
    for (const char *name : {"grant", "subscribe", "confirm", "dgtstat", "digest", "status"})
        write_whole(control(name), "");
    write_whole(message_, mail());
    make_roster(1);
}

/* Links of one file, or of several: a file has 65,000 names at most on ext4. */
static void make_messages(const std::string &source, const std::string &names, uint32_t count)
{
    std::string from;
    for (uint32_t uid = 1; uid <= count; ++uid) {
        if (uid % 60000 == 1) {
            from = source + std::to_string(uid);
            write_whole(from, mail());
        }
        const std::string name = names + std::to_string(uid);
        if (link(from.c_str(), name.c_str()) != 0) give_up(name);
    }
}

void DeliveryList::make_archive(uint32_t messages)
{
    fs::remove_all(box("#msg"));
    fs::create_directory(box("#msg"));
    fs::remove(box("#mix"));
    make_messages(directory_ + "/source.", box("#msg/"), messages);
    std::vector<IndexRecord> index = {{messages + 1, UIDVALIDITY, messages + 1, 0}};
    for (uint32_t uid = 1; uid <= messages; ++uid)
        index.push_back({uid, MESSAGE_RECENT, 300, MAIL_SIZE});
    write_whole(box("#mix"), std::string(reinterpret_cast<const char *>(index.data()),
                                         index.size() * sizeof(IndexRecord)));
    write_whole(control("dgtstat"), "");
}

void DeliveryList::make_roster(uint32_t members)
{
    std::string roster, active;
    for (uint32_t i = 1; i < members; ++i) {
        const std::string address = "member" + std::to_string(i) + "@example.com";
        roster += address + " ON \r\n";
        active += address + "\r\n";
    }
    write_whole(control("member"), roster + "alice@example.net ON \r\n");
    write_whole(control("active"), active + "alice@example.net\r\n");
}

void DeliveryList::set_keep(uint32_t messages)
{
    write_whole(control("init"), "subject=edit\r\nsubjectf=[%M:%0S]\r\nmaxsummary=500\r\njournal=" +
                                     std::to_string(messages) + "\r\n");
}

/* -- the host -- */

static int discard(const char *, const char *, const char *const *, const char *, char *)
{
    return 1;
}

/* As mlistd has one: what is printed goes no further than the process. */
static FILE *discarding_stream()
{
    static const cookie_io_functions_t functions = {
        nullptr, [](void *, const char *, size_t size) { return static_cast<ssize_t>(size); },
        nullptr, nullptr};
    static FILE *const stream = fopencookie(nullptr, "w", functions);
    return stream;
}

static char eof_text[] = "EOF";

static char *keep_text(const char *)
{
    return eof_text; /* all that is kept when a submission leaves no text */
}

void DeliveryList::deliver(const std::string &file, bool as_command)
{
    mlist_set_output(discarding_stream());
    OwnRequest own({discard, keep_text});
    if (own.deliver(ModuleMain, file, "example.jp", arguments_for("mylist", as_command)) ==
        MLIST_EXIT_ACCEPTED)
        return;
    fprintf(stderr, "a mail was not accepted: %s\n", own.reply_text);
    exit(1);
}

void DeliveryList::post()
{
    deliver(message_, false);
}

void DeliveryList::command(const std::string &lines)
{
    const std::string file = directory_ + "/command";
    write_whole(file, "From: alice@example.net\r\nMessage-ID: <c1@example.net>\r\n\r\n" + lines);
    deliver(file, true);
}

void DeliveryList::make_large(uint32_t uid, size_t bytes)
{
    const std::string name = box("#msg/" + std::to_string(uid));
    fs::remove(name);
    /* In pieces: the benchmark measures what the process grows by. */
    std::ofstream file(name, std::ios::binary);
    file << mail();
    const std::string line = std::string(70, 'x') + "\r\n";
    for (size_t size = 0; size < bytes; size += line.size())
        file << line;
    file.close();
    if (!file) give_up(name);
}
