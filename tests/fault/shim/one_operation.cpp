/* Usage: one_operation ROOT WORD... - does operations on mylist@example.jp with the built library,
   as a host does; prints how each one ended.

   ROOT/lists holds control/ and archive/, ROOT/sent what was submitted: SENDER, the recipients, a
   blank line, the mail.  The words: post:ID and deny:ID (postings of a member, of a stranger),
   command:ADDRESS:LINE, push, flag and mark (the oldest message as seen,
   as deleted), expunge, check, rebuild, sweep, and start (what
   a host does with each list when it starts). */
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "mlist/admin.h"
#include "mlist/mlist.h"
#include "tests/support/own_request.h"

namespace fs = std::filesystem;

static std::string root;
static void *library;
static std::deque<std::string> kept;

template <class Type> static Type *symbol(const char *name)
{
    void *address = dlsym(library, name);
    if (address == nullptr) abort();
    return reinterpret_cast<Type *>(address);
}
#define MODULE(name) symbol<decltype(name)>(#name)

static std::string content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static std::string control(const char *name)
{
    return root + "/lists/control/example.jp/mylist/" + name;
}

static void load()
{
    library = dlopen(MLIST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) abort();
    static ModuleRecord record = {};
    snprintf(record.host_fqdn, sizeof(record.host_fqdn), "mail.example.jp");
    if (MODULE(ModuleInitialize)(&record) != 1) abort();
    snprintf(symbol<char>("g_path_mlist"), 1024, "%s/lists/control", root.c_str());
    snprintf(symbol<char>("g_mbox_list"), 1024, "%s/lists/archive", root.c_str());
    MODULE(mlist_set_output)(fopen("/dev/null", "we"));
}

/* -- deliveries -- */

/* As a queue does: there under its name, whole, before the module hears of it. */
static int submit(const char *file, const char *sender, const char *const *recipients,
                  const char *recipient_file, char *)
{
    std::string text = std::string(sender) + "\n";
    for (; recipients != nullptr && *recipients != nullptr; ++recipients)
        text += std::string(*recipients) + "\n";
    if (recipient_file != nullptr)
        text += content_of(recipient_file[0] == '/' ? recipient_file : control("digest"));
    text += "\n" + content_of(file);
    const std::string folder = root + "/sent/";
    const auto number = std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    std::ofstream(folder + ".new", std::ios::binary) << text;
    fs::rename(folder + ".new", folder + std::to_string(number));
    return 1;
}

static char *keep_text(const char *text)
{
    return kept.emplace_back(text).data();
}

static void deliver(const char *word, const std::string &mail, bool to_control)
{
    const std::string file = root + "/message";
    std::ofstream(file, std::ios::binary) << mail;
    OwnRequest own({submit, keep_text});
    const int code =
        own.deliver(MODULE(ModuleMain), file, "example.jp", arguments_for("mylist", to_control));
    own.reply_text[strcspn(own.reply_text, "\r\n")] = '\0';
    printf("%s %d %s\n", word, code, own.reply_text);
}

static std::string mail_of(const std::string &from, const std::string &id, const std::string &body)
{
    return "From: " + from + "\r\nTo: mylist@example.jp\r\nSubject: Hello\r\nMessage-ID: <" + id +
           "@example.net>\r\n\r\n" + body + "\r\n";
}

/* -- the archive and the control files -- */

static void with_archive(const char *word, void (*act)(MailboxHandle *))
{
    MailboxHandle *box =
        MODULE(list_mbx_open)((root + "/lists/archive/example.jp/mylist/INBOX").c_str(), 0);
    if (box != nullptr) {
        act(box);
        MODULE(list_mbx_close)(box);
    }
    printf("%s %d\n", word, box != nullptr ? 0 : 1);
}

static void flag_oldest(MailboxHandle *box, uint32_t flag)
{
    box->index[1].flags |= flag | MESSAGE_CHANGED;
    box->mode |= MAILBOX_FORCE_CHECK;
    MODULE(mlmbx_checknewmail)(box); /* writes it back */
}

static void with_list(const char *word, int (*act)(ListSession *))
{
    ListSession *session = MODULE(mlist_session_open)("mylist", "example.jp");
    const int result = session != nullptr ? act(session) : -1;
    MODULE(mlist_session_close)(session);
    printf("%s %d\n", word, result);
}

static int put_in_order(ListSession *session)
{
    int worst = 0;
    for (const char *name :
         {"init", "member", "active", "digest", "grant", "subscribe", "confirm", "dgtstat"})
        worst |= MODULE(f_recover)(control(name).c_str());
    for (const char *type : {"active", "digest"})
        worst |= MODULE(mlist_derive)(session, type) < 0;
    return worst;
}

static void do_word(const std::string &word)
{
    const size_t colon = word.find(':');
    const std::string verb = word.substr(0, colon);
    const std::string rest = colon == word.npos ? "" : word.substr(colon + 1);
    const char *shown = verb.c_str();
    const std::string text(6000, 'x');
    if (verb == "post")
        deliver(shown, mail_of("alice@example.net", rest, text + "\r\nThe last line."), false);
    else if (verb == "deny")
        deliver(shown, mail_of("stranger@example.com", rest, text + "\r\nThe last line."), false);
    else if (verb == "command") {
        const size_t end = rest.find(':');
        deliver(shown, mail_of(rest.substr(0, end), "c", rest.substr(end + 1)), true);
    } else if (verb == "push")
        deliver(shown, "From: owner-mylist@example.jp\r\n\r\n# push\r\n", true);
    else if (verb == "check")
        with_archive(shown, [](MailboxHandle *box) {
            box->mode |= MAILBOX_FORCE_CHECK;
            MODULE(mlmbx_checknewmail)(box);
        });
    else if (verb == "flag")
        with_archive(shown, [](MailboxHandle *box) { flag_oldest(box, MESSAGE_SEEN); });
    else if (verb == "mark")
        with_archive(shown, [](MailboxHandle *box) { flag_oldest(box, MESSAGE_DELETED); });
    else if (verb == "expunge")
        with_archive(shown, [](MailboxHandle *box) { MODULE(mlmbx_expunge)(box, 1); });
    else if (verb == "rebuild")
        printf("%s %d\n", shown,
               MODULE(list_mbx_rebuild)((root + "/lists/archive/example.jp/mylist/INBOX").c_str()));
    else if (verb == "sweep")
        with_list(shown, [](ListSession *session) { return MODULE(mlist_confirm_clean)(session); });
    else if (verb == "start")
        with_list(shown, put_in_order);
    else
        abort();
    fflush(stdout);
}

int main(int argc, char **argv)
{
    if (argc < 3) return 2;
    root = argv[1];
    load();
    for (int word = 2; word < argc; word++)
        do_word(argv[word]);
    return 0;
}
