/* Control files: settings, roster, access lists, confirmations, digest status, banners. */
#include <gtest/gtest.h>
#include <string.h>

#include "store/confirm.h"
#include "store/file.h"
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
    {"commands", repeated("cmd=on on on on on on on on on on\r\n")},
    {"confirmations", repeated("erin@x 9999/00/01:00:00 0123456789ABCDEF\r\n")},
    {"old confirmations", repeated("erin@x 1999/00/01:00:00 0123456789ABCDEF\r\n")},
};

/* More than 200 steps for an empty line: 64 MiB of those would take half a minute. */
static constexpr size_t DEAR = 8 * MIB;

class LinearControl : public ::testing::Test
{
  protected:
    LinearControl() { tcbcreate(&host_.request); }
    ~LinearControl() override { tcbfree(); }

    void demand(const char *name, const std::function<void(DeliveryJob *)> &run,
                size_t largest = 64 * MIB)
    {
        SCOPED_TRACE(name);
        demand_linear(
            files,
            [&](std::string &text) {
                list_.put(name, text);
                run(list_.job());
            },
            largest);
        list_.put(name, "");
    }

    WithoutSync no_sync_;
    FakeHost host_;
    TempList list_;
};

TEST_F(LinearControl, Settings)
{
    demand(
        "init",
        [](DeliveryJob *job) { (void)get_mlini(job->list_name, job->domain, &job->settings); },
        DEAR);
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
    demand(
        "member",
        [](DeliveryJob *job) {
            (void)add_mlmbr(job, nobody.c_str());
            (void)chg_mlmbr(job, nobody.c_str(), 2);
            (void)del_mlmbr(job, nobody.c_str());
            (void)reflect_include(job, "active");
        },
        DEAR);
}

TEST_F(LinearControl, RosterIsChangedForMany)
{
    demand(
        "member",
        [](DeliveryJob *job) {
            const char *const two[] = {nobody.c_str(), "alice@example.net"};
            const RosterSet set(two, 2);
            int state[] = {0, 0};
            (void)get_members(job, set, state);
            (void)add_mlmbrs(job, set, state);
            (void)chg_mlmbrs(job, set, MEMBER_OFF, state);
            (void)del_mlmbrs(job, set);
        },
        2 * MIB);
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

TEST_F(LinearControl, DigestStatus)
{
    demand_linear({{"numbers", repeated("1,"), "4,096 bytes"},
                   {"ranges", repeated("1-2,"), "4,096 bytes"},
                   {"one number", repeated("1"), "4,096 bytes"}},
                  [&](std::string &text) {
                      list_.put("dgtstat", text);
                      (void)set_dstfile(list_.job(), list_.control("dgtstat").c_str(), 7);
                  });
    demand_linear({{"numbers", repeated("1,"), "the last item counts"},
                   {"ranges", repeated("1-2,"), "the last item counts"},
                   {"digits", repeated("1"), "the last item counts"}},
                  [](std::string &text) {
                      text.resize(text.size() + 64);
                      (void)anlyzline_dst(text.data(), static_cast<int>(text.size()), 7);
                  });
}
