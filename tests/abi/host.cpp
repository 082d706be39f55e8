#include "tests/abi/host.h"
#include "tests/support/own_request.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

/* Of the delivery that the thread is at: submit is called on the delivering thread. */
static thread_local std::vector<Submitted> submitted;
static thread_local std::string result_to_leave;
static thread_local std::deque<std::string> kept_texts;

std::string file_content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void write_content(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    if (!file.flush()) abort();
}

/* A host's submit operation: everything is copied before it returns. */
static int submit(const char *file, const char *sender, const char *const *recipients,
                  const char *recipient_file, char *result_text)
{
    Submitted mail;
    mail.file = file;
    mail.content = file_content(file);
    mail.sender = sender;
    for (; recipients && *recipients; recipients++)
        mail.recipients.emplace_back(*recipients);
    if (recipient_file) mail.recipient_file = file_content(recipient_file);
    mail.result_zeroed = std::all_of(result_text, result_text + MLIST_RESULT_TEXT_SIZE,
                                     [](char byte) { return byte == '\0'; });
    submitted.push_back(mail);
    snprintf(result_text, MLIST_RESULT_TEXT_SIZE, "%s", result_to_leave.c_str());
    return 1;
}

static char *keep_text(const char *text)
{
    return kept_texts.emplace_back(text).data();
}

void *Host::address_of(const char *name) const
{
    void *address = dlsym(library_, name);
    if (address == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        abort();
    }
    return address;
}

static void set_root(char *variable, const fs::path &path)
{
    snprintf(variable, 1024, "%s", path.c_str());
}

Host::Host()
{
    char name[] = "/tmp/mlist-abi-XXXXXX";
    if (mkdtemp(name) == nullptr) abort();
    root_ = name;
    setenv("TZ", "Asia/Tokyo", 1);

    library_ = dlopen(MLIST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        abort();
    }
    snprintf(record_.host_fqdn, sizeof(record_.host_fqdn), "mail.example.jp");
    initialized_ = symbol<decltype(ModuleInitialize)>("ModuleInitialize")(&record_);
    set_root(symbol<char>("g_path_mlist"), root_ / "control");
    set_root(symbol<char>("g_mbox_list"), root_ / "box");
    symbol<decltype(mlist_set_output)>("mlist_set_output")(fopen("/dev/null", "we"));
    fs::create_directories(root_ / "control");
    fs::create_directories(root_ / "box");
}

Host::~Host()
{
    fs::remove_all(root_);
}

std::string Host::control(const std::string &name, const std::string &list) const
{
    return root_ / "control/example.jp" / list / name;
}

std::string Host::box(const std::string &name, const std::string &list) const
{
    return root_ / "box/example.jp" / list / "INBOX" / name;
}

void Host::make_list(const std::string &settings, const std::string &list) const
{
    fs::create_directories(control("", list));
    fs::create_directories(root_ / "box/example.jp" / list);
    auto *session =
        symbol<decltype(mlist_session_open)>("mlist_session_open")(list.c_str(), "example.jp");
    ASSERT_NE(session, nullptr);
    ASSERT_EQ(symbol<decltype(mlist_session_check_files)>("mlist_session_check_files")(session), 0);
    write_content(control("grant", list), "");
    write_content(control("subscribe", list), "");
    write_content(control("init", list), settings);
    auto *add = symbol<decltype(mlist_member_add)>("mlist_member_add");
    auto *add_many = symbol<decltype(mlist_member_add_many)>("mlist_member_add_many");
    ASSERT_EQ(add(session, "alice@example.net"), 1);
    const char *const addresses[] = {"ALICE@example.net", "bob@example.jp"};
    int results[] = {-1, -1};
    ASSERT_EQ(add_many(session, addresses, 2, results), 0);
    ASSERT_EQ(results[0], 0) << "a member already, in other letters";
    ASSERT_EQ(results[1], 1);
    symbol<decltype(mlist_session_close)>("mlist_session_close")(session);
    std::string archive = root_ / "box/example.jp" / list / "INBOX";
    ASSERT_EQ(symbol<decltype(mlmbx_create)>("mlmbx_create")(archive.c_str()), 1);
}

Delivered Host::deliver(const std::string &message, const std::vector<std::string> &arguments,
                        const std::string &submit_result) const
{
    std::string file = root_ / ("message." + std::to_string(gettid()));
    write_content(file, message);
    OwnRequest own({submit, keep_text});
    strcpy(own.reply_text, "left over");
    strcpy(own.result_text, "untouched");
    submitted.clear();
    kept_texts.clear();
    result_to_leave = submit_result;

    Delivered delivered;
    delivered.exit_code =
        own.deliver(symbol<decltype(ModuleMain)>("ModuleMain"), file, "example.jp", arguments);
    delivered.reply = own.reply_text;
    delivered.result = own.result_text;
    delivered.submitted = submitted;
    return delivered;
}
