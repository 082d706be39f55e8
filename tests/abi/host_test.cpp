/* The built library from outside: opened with dlopen, its names kept to itself, nothing used but
   the public headers. */
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "tests/abi/host.h"

static const char settings[] = "cmd=on on on on on on on on on on\r\n"
                               "subject=edit\r\n"
                               "subjectf=[%M:%0S]\r\n"
                               "vstrml=grant\r\n"
                               "vstrc=part\r\n"
                               "precedence=list\r\n"
                               "journal=1000\r\n"
                               "time=7:30\r\n"
                               "replyedit=add\r\n"
                               "replyto=mylist@example.jp\r\n"
                               "defstatus=1\r\n"
                               "confirm=0\r\n"
                               "maxsummary=500\r\n"
                               "maxmsgsize=0\r\n"
                               "webpasswd=\r\n";

static const char posting[] = "Received: from mx.example.net (mx.example.net [192.0.2.1])\r\n"
                              "\tby ml.example.jp with LMTP; Sun, 15 Nov 2026 09:13:58 +0900\r\n"
                              "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\n"
                              "From: Alice Example <alice@example.net>\r\n"
                              "To: mylist@example.jp\r\n"
                              "Subject: Hello\r\n"
                              "Message-ID: <a1@example.net>\r\n"
                              "Mime-Version: 1.0\r\n"
                              "Content-Type: text/plain; charset=us-ascii\r\n"
                              "\r\n"
                              "Hi all.\r\n";

static const char distributed[] =
    "X-Received:  from mx.example.net (mx.example.net [192.0.2.1])\r\n"
    "\tby ml.example.jp with LMTP; Sun, 15 Nov 2026 09:13:58 +0900\r\n"
    "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\n"
    "From: Alice Example <alice@example.net>\r\n"
    "To: mylist@example.jp\r\n"
    "Message-ID: <a1@example.net>\r\n"
    "Mime-Version: 1.0\r\n"
    "Content-Type: text/plain; charset=us-ascii\r\n"
    "X-ML-Name: mylist@example.jp\r\n"
    "X-Mail-Count: 000001\r\n"
    "Precedence: list\r\n"
    "Reply-To: mylist@example.jp\r\n"
    "Subject: [mylist:00001] Hello\r\n"
    "\r\n"
    "Hi all.\r\n";

/* Without the four bytes of UIDVALIDITY, which are the time of the archive's making. */
static std::string index_but_validity(const Host &host)
{
    return file_content(host.box("#mix")).erase(4, 4);
}

TEST(BuiltLibrary, IntroducesItselfInTheModuleRecord)
{
    Host host;
    EXPECT_EQ(host.initialized(), 1);
    EXPECT_EQ(host.record().interface_word, MLIST_INTERFACE_WORD);
    EXPECT_STREQ(host.record().module_name, "mlist");
    EXPECT_STREQ(host.record().host_fqdn, "mail.example.jp");
    EXPECT_EQ(host.initialized(), host.symbol<decltype(ModuleInitialize)>("ModuleInitialize")(
                                      const_cast<ModuleRecord *>(&host.record())));
}

TEST(BuiltLibrary, KeepsItsNamesToItself)
{
    Host host;
    for (const char *name : {"ModuleMain", "f_open", "trace_sys", "mlist_session_open"})
        EXPECT_EQ(dlsym(RTLD_DEFAULT, name), nullptr) << name;
}

TEST(BuiltLibrary, FillsTheDefaultListSettings)
{
    Host host;
    const auto *defaults = host.symbol<ListSettings>("g_mlit");
    EXPECT_EQ(defaults->command_mask, 2047u);
    EXPECT_EQ(defaults->journal, 1000);
    EXPECT_EQ(defaults->digest_time, 780);
    EXPECT_STREQ(defaults->subject_format, "[%M:%S]");
}

TEST(BuiltLibrary, DistributesAndArchivesAPosting)
{
    Host host;
    host.make_list(settings);
    Delivered delivered = host.deliver(posting, {"mylist"}, "queued as 7");

    EXPECT_EQ(delivered.exit_code, MLIST_EXIT_ACCEPTED);
    EXPECT_EQ(delivered.reply, "");
    EXPECT_EQ(delivered.result, "queued as 7");
    ASSERT_EQ(delivered.submitted.size(), 1u);
    const Submitted &mail = delivered.submitted[0];
    EXPECT_EQ(mail.file, host.control("jnl/2"));
    EXPECT_EQ(mail.content, distributed);
    EXPECT_EQ(mail.sender, "owner-mylist@example.jp");
    EXPECT_TRUE(mail.recipients.empty());
    EXPECT_EQ(mail.recipient_file, "alice@example.net\r\nbob@example.jp\r\n");
    EXPECT_TRUE(mail.result_zeroed);

    EXPECT_EQ(file_content(host.box("#msg/1")), distributed);
    EXPECT_EQ(index_but_validity(host), std::string("\x02\0\0\0\x02\0\0\0\0\0\0\0"
                                                    "\x01\0\0\0\x20\0\0\0\xc5\x01\0\0\xce\x01\0\0",
                                                    28));
    EXPECT_EQ(file_content(host.control("dgtstat")), "1");
    EXPECT_FALSE(std::filesystem::exists(host.control("jnl/2")));
}

TEST(BuiltLibrary, NumbersTheSecondPostingNext)
{
    Host host;
    host.make_list(settings);
    ASSERT_EQ(host.deliver(posting, {"mylist"}).exit_code, MLIST_EXIT_ACCEPTED);
    Delivered second = host.deliver(posting, {"mylist"});
    ASSERT_EQ(second.submitted.size(), 1u);
    EXPECT_NE(second.submitted[0].content.find("X-Mail-Count: 000002\r\n"), std::string::npos);
    EXPECT_EQ(file_content(host.control("dgtstat")), "1-2");
}

TEST(BuiltLibrary, RefusesAnUnfinishedHeader)
{
    Host host;
    host.make_list(settings);
    Delivered delivered = host.deliver("From: alice@example.net\r\nSubject: x\r\n", {"mylist"});
    EXPECT_EQ(delivered.exit_code, MLIST_EXIT_REFUSED);
    EXPECT_TRUE(delivered.reply.starts_with("528 input error (no text) [ml=mylist] "))
        << delivered.reply;
    EXPECT_EQ(delivered.result, "untouched");
    EXPECT_TRUE(delivered.submitted.empty());
}

TEST(BuiltLibrary, RefusesATooLongListName)
{
    Host host;
    host.make_list(settings);
    Delivered delivered = host.deliver(posting, {std::string(33, 'a')});
    EXPECT_EQ(delivered.exit_code, MLIST_EXIT_REFUSED);
    EXPECT_EQ(delivered.reply.substr(0, 26), "501 argument error [ac=1] ");
}

TEST(BuiltLibrary, AsksForANewTryWithoutAnArchive)
{
    Host host;
    host.make_list(settings);
    std::filesystem::remove_all(host.box(""));
    Delivered delivered = host.deliver(posting, {"mylist"});
    EXPECT_EQ(delivered.exit_code, MLIST_EXIT_LATER);
    EXPECT_EQ(delivered.reply.substr(0, 27), "505 get_newid fail [ml=myli");
}

TEST(BuiltLibrary, DeniesAStrangerWithANotice)
{
    Host host;
    std::string strict = settings;
    strict.replace(strict.find("vstrml=grant"), 12, "vstrml=deny");
    host.make_list(strict);
    std::string stranger = posting;
    stranger.replace(stranger.find("alice@example.net"), 17, "carol@example.net");
    Delivered delivered = host.deliver(stranger, {"mylist"});
    EXPECT_EQ(delivered.exit_code, MLIST_EXIT_ACCEPTED);
    ASSERT_EQ(delivered.submitted.size(), 1u);
    EXPECT_EQ(delivered.submitted[0].recipients, std::vector<std::string>{"carol@example.net"});
    EXPECT_FALSE(std::filesystem::exists(host.box("#msg/1")));
}

TEST(BuiltLibrary, PrintsAnArchiveToTheThreadsSink)
{
    Host host;
    host.make_list(settings);
    ASSERT_EQ(host.deliver(posting, {"mylist"}).exit_code, MLIST_EXIT_ACCEPTED);

    char *text = nullptr;
    size_t size = 0;
    FILE *sink = open_memstream(&text, &size);
    host.symbol<decltype(mlist_set_output)>("mlist_set_output")(sink);
    std::string archive = host.box("");
    archive.pop_back();
    MailboxHandle *box = host.symbol<decltype(list_mbx_open)>("list_mbx_open")(
        archive.c_str(), MAILBOX_NO_WRITE_BACK);
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->index[1].uid, 1u);
    EXPECT_EQ(host.symbol<decltype(mlmbx_uid2seq)>("mlmbx_uid2seq")(box, 1), 1);
    host.symbol<decltype(list_mbx_close)>("list_mbx_close")(box);
    fclose(sink);
    EXPECT_NE(std::string(text, size).find("* 1 EXISTS\r\n"), std::string::npos);
    free(text);
}
