/* Control files: settings, roster, access lists, confirmations, digest status, banners. */
#include <gtest/gtest.h>
#include <string.h>

#include "mlist/admin.h"
#include "module/module_vars.h"
#include "store/confirm.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/roster.h"
#include "tests/linear/linear.h"
#include "tests/support/fake_host.h"
#include "tests/support/temp_list.h"
#include "tests/support/without_sync.h"
#include "tests/unit/archive/box.h"

static const std::string nobody = "zoe@example.com";

static const std::vector<Worst> files = {
    {"members", repeated("alice@example.net ON \r\n")},
    {"addresses that are nearly wanted", repeated("zoe@example.con ON \r\n")},
    {"empty lines", repeated("\r\n")},
    {"line feeds", repeated("\n")},
    {"carriage returns", repeated("\r")},
    {"blanks", repeated(" ")},
    {"one line", repeated("x")},
    {"stars", repeated("*")},
    {"domains", repeated("@example.com\r\n")},
    {"patterns", repeated("*@*.example.net\r\n")},
    {"comments", repeated("#\r\n")},
    {"settings", repeated("subject=edit\r\n")},
    {"settings without end", repeated("subjectf=")},
    {"equal signs", repeated("=")},
    {"lines of an equal sign", repeated("=\n")},
    {"nearly a setting", repeated("webpassw=\n")},
    {"commands", repeated("cmd=on on on on on on on on on on\r\n")},
    {"confirmations", repeated("erin@x 9999/00/01:00:00 0123456789ABCDEF\r\n")},
    {"old confirmations", repeated("erin@x 1999/00/01:00:00 0123456789ABCDEF\r\n")},
};

class LinearControl : public ::testing::Test
{
  protected:
    LinearControl() { tcbcreate(&host_.request); }
    ~LinearControl() override { tcbfree(); }

    void demand(const char *name, const std::function<void(DeliveryJob *)> &run)
    {
        SCOPED_TRACE(name);
        demand_linear(files, [&](std::string &text) {
            list_.put(name, text);
            run(list_.job());
        });
        list_.put(name, "");
    }

    WithoutSync no_sync_;
    FakeHost host_;
    TempList list_;
};

TEST_F(LinearControl, Settings)
{
    demand("init",
           [](DeliveryJob *job) { (void)get_mlini(job->list_name, job->domain, &job->settings); });
}

TEST_F(LinearControl, RosterIsSearched)
{
    demand("member", [](DeliveryJob *job) {
        char line[LINE_SIZE];
        (void)get_member(job, nobody.c_str(), line);
    });
}

TEST_F(LinearControl, RosterIsChanged)
{
    demand("member", [](DeliveryJob *job) {
        (void)add_mlmbr(job, nobody.c_str());
        (void)chg_mlmbr(job, nobody.c_str(), 2);
        (void)del_mlmbr(job, nobody.c_str());
        (void)reflect_include(job, "active");
    });
}

TEST_F(LinearControl, RosterIsChangedForMany)
{
    demand("member", [](DeliveryJob *job) {
        const char *const two[] = {nobody.c_str(), "alice@example.net"};
        const RosterSet set(two, 2);
        int state[] = {0, 0};
        (void)get_members(job, set, state);
        (void)add_mlmbrs(job, set, state);
        (void)chg_mlmbrs(job, set, MEMBER_OFF, state);
        (void)del_mlmbrs(job, set);
    });
}

TEST_F(LinearControl, AccessLists)
{
    for (const char *name : {"grant", "subscribe"})
        demand(name, [&](DeliveryJob *job) {
            char line[LINE_SIZE];
            (void)get_grant(job, nobody.c_str(), line);
            (void)get_subscribe(job, nobody.c_str(), line);
        });
}

TEST_F(LinearControl, Confirmations)
{
    demand("confirm", [](DeliveryJob *job) {
        char id[CONFIRM_ID_SIZE];
        (void)get_cnfrmdb(job, "erin@x", id);
        (void)cln_cnfrmdb(job);
    });
}

/* What tools ask for. */
TEST_F(LinearControl, Administration)
{
    const MemberVisitor member = [](const char *, int, void *) { return 0; };
    const AccessVisitor access = [](const char *, void *) { return 0; };
    const ConfirmVisitor pending = [](const PendingConfirmation *, void *) { return 0; };
    ListSession *session = mlist_session_open("mylist", "example.jp");
    ASSERT_NE(nullptr, session);
    demand("member", [&](DeliveryJob *) {
        EXPECT_EQ(0, mlist_member_each(session, member, nullptr));
        EXPECT_LE(0, mlist_derive(session, "active"));
    });
    demand("subscribe", [&](DeliveryJob *) {
        EXPECT_EQ(0, mlist_access_each(session, "subscribe", access, nullptr));
        EXPECT_EQ(1, mlist_access_add(session, "subscribe", "example.biz"));
        EXPECT_EQ(1, mlist_access_remove(session, "subscribe", "example.biz"));
    });
    demand("confirm",
           [&](DeliveryJob *) { EXPECT_EQ(0, mlist_confirm_each(session, pending, nullptr)); });
    mlist_session_close(session);
}

TEST_F(LinearControl, Banners)
{
    static const std::vector<Worst> banners = {
        {"lines", repeated("x\r\n")},
        {"line feeds", repeated("\n")},
        {"one line", repeated("x")},
        {"one line of katakana", repeated("\x8e\xb6")},
        {"katakana with marks", repeated("\x8e\xca\x8e\xdf")},
        {"one character of each kind in turn", repeated("a\xa4\xa2")},
        {"single shifts", repeated("\x8e")},
        {"escapes", repeated("\x1b$B\x1b(B")},
    };
    DeliveryJob *job = list_.job();
    job->content_kind = CONTENT_JIS;
    demand_linear(banners, [&](std::string &text) {
        list_.put("msg/bnrtopj.txt", text);
        job->journal = f_open(list_.control("jnl/j.1").c_str(), "w");
        EXPECT_EQ(0, Fbuffer(job->journal, 65536));
        EXPECT_EQ(0, insert_banner_t(job));
        EXPECT_EQ(1, f_close(job->journal));
        job->journal = nullptr;
    });
}

/* A journal that nobody measured while it was written. */
TEST_F(LinearControl, HandOff)
{
    const Discard discard;
    DeliveryJob *job = list_.job();
    job->settings.journal = 1;
    ASSERT_EQ(1, mlmbx_create(list_.box().c_str()));
    const std::string journal = "jnl/j." + std::to_string(job->thread_id);
    demand_linear({{"line feeds in a header", repeated("x", "\nx", "")},
                   {"fields", repeated("X: x\r\n")},
                   {"carriage returns", repeated("\r")},
                   {"one line", repeated("x")}},
                  [&](std::string &text) {
                      list_.put(journal, text);
                      EXPECT_EQ(0, mlappend(job));
                  });
}

TEST_F(LinearControl, LocalConfiguration)
{
    const std::string path = list_.control("local.conf");
    const char *const former = local_conf_path;
    local_conf_path = path.c_str();
    std::vector<Worst> lines = files;
    lines.push_back({"values", repeated("pop_port=1\n")});
    lines.push_back({"one value", repeated("pop_port=", "1", "")});
    lines.push_back({"beginnings of keys", repeated("ml_\n")});
    demand_linear(lines, [&](std::string &text) {
        list_.put("local.conf", text);
        int32_t values[12];
        local_conf2(values);
    });
    local_conf_path = former;
}

TEST_F(LinearControl, DigestStatus)
{
    demand_linear({{"numbers", repeated("1,"), "4,096 bytes"},
                   {"ranges", repeated("1-2,"), "4,096 bytes"},
                   {"one number", repeated("1"), "4,096 bytes"}},
                  [&](std::string &text) {
                      list_.put("dgtstat", text);
                      char line[LINE_SIZE];
                      const std::string path = list_.control("dgtstat");
                      (void)get_dstfile(list_.job(), path.c_str(), line, sizeof(line));
                      (void)set_dstfile(list_.job(), path.c_str(), 7);
                  });
    demand_linear({{"numbers", repeated("1,"), "the last item counts"},
                   {"ranges", repeated("1-2,"), "the last item counts"},
                   {"digits", repeated("1"), "the last item counts"}},
                  [](std::string &text) {
                      text.resize(text.size() + 64);
                      (void)anlyzline_dst(text.data(), static_cast<int>(text.size()), 7);
                  });
}
