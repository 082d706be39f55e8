/* Command mails that are disturbed at any of their changing calls, and delivered again. */
#include <errno.h>
#include <unistd.h>

#include <algorithm>

#include "mlist/admin.h"
#include "tests/pipeline/pipeline.h"
#include "tests/support/fault_os.h"

struct CommandMailRow {
    const char *label, *from, *line;
    const char *member, *active, *digest; /* afterwards */
};

static void PrintTo(const CommandMailRow &row, std::ostream *out)
{
    *out << row.label;
}

static const CommandMailRow command_mails[] = {
    {"Subscribe", "carol@example.com", "# subscribe",
     "alice@example.net ON \r\nbob@example.jp DGT\r\ncarol@example.com ON \r\n",
     "alice@example.net\r\ncarol@example.com\r\n", "bob@example.jp\r\n"},
    {"Unsubscribe", "alice@example.net", "# unsubscribe", "bob@example.jp DGT\r\n", "",
     "bob@example.jp\r\n"},
    {"On", "bob@example.jp", "# on", "alice@example.net ON \r\nbob@example.jp ON \r\n",
     "alice@example.net\r\nbob@example.jp\r\n", ""},
    {"Off", "alice@example.net", "# off", "alice@example.net OFF\r\nbob@example.jp DGT\r\n", "",
     "bob@example.jp\r\n"},
    {"Digest", "alice@example.net", "# digest", "alice@example.net DGT\r\nbob@example.jp DGT\r\n",
     "", "alice@example.net\r\nbob@example.jp\r\n"},
};

/* While it lives, nothing is synced: the process dies, not the machine. */
class QuickDisk
{
  public:
    QuickDisk() : former_(os), calls_(*os)
    {
        calls_.fsync = [](int) { return 0; };
        os = &calls_;
    }
    ~QuickDisk() { os = former_; }
    QuickDisk(const QuickDisk &) = delete;
    QuickDisk &operator=(const QuickDisk &) = delete;

  private:
    const OsCalls *former_;
    OsCalls calls_;
};

class DisturbedCommandMail : public PipelineTest,
                             public ::testing::WithParamInterface<CommandMailRow>
{
  protected:
    void prepare()
    {
        list.put("member", before);
        list.put("active", "alice@example.net\r\n");
        list.put("digest", "bob@example.jp\r\n");
        host.submissions.clear();
        (void)take_log();
        (void)out.take();
    }
    int send()
    {
        const CommandMailRow &row = GetParam();
        return command("From: " + std::string(row.from) +
                       "\r\nMessage-ID: <c1@example.com>\r\n\r\n" + row.line + "\r\n");
    }
    /* What list-check does: recovers, and derives from the roster what follows from it. */
    void repair()
    {
        ListSession *session = mlist_session_open("mylist", "example.jp");
        ASSERT_NE(nullptr, session);
        EXPECT_LE(0, mlist_derive(session, "active"));
        EXPECT_LE(0, mlist_derive(session, "digest"));
        EXPECT_LE(0, mlist_member_status(session, "alice@example.net")); /* recovers the roster */
        mlist_session_close(session);
    }
    void expect_new()
    {
        EXPECT_EQ(GetParam().member, list.get("member"));
        EXPECT_EQ(GetParam().active, list.get("active"));
        EXPECT_EQ(GetParam().digest, list.get("digest"));
    }
    const std::string before = "alice@example.net ON \r\nbob@example.jp DGT\r\n";
    QuickDisk quick;
};

TEST_P(DisturbedCommandMail, IsCarriedOutWhenItIsDeliveredAgain)
{
    int calls = 0;
    for (const int error : {ENOSPC, EIO, -1}) {
        bool disturbed = true;
        for (int nth = 0; disturbed; ++nth) {
            SCOPED_TRACE("call " + std::to_string(nth) + ", error " + std::to_string(error));
            prepare();
            int result;
            {
                FaultOs fault;
                fault.fail_nth_change(nth, error);
                result = send();
                disturbed = fault.disturbed();
            }
            EXPECT_TRUE(result == 0 || result == 69 || result == 75) << result;
            repair();
            const std::string found = list.get("member");
            EXPECT_TRUE(found == before || found == GetParam().member) << found;
            EXPECT_EQ(0, send());
            repair();
            expect_new();
            calls += disturbed;
        }
    }
    EXPECT_GT(calls, 30);
    expect_nothing_lost_or_left();
}

INSTANTIATE_TEST_SUITE_P(Commands, DisturbedCommandMail, ::testing::ValuesIn(command_mails),
                         [](const auto &row) { return row.param.label; });
