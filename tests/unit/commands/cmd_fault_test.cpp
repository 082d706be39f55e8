/* A command that is disturbed at any of its changing calls: a failed call, a full disk, the death
   of the process.  The control files are the old or the new ones, whole, and everything that
   follows from the roster can be derived from it. */
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "mlist/mlist.h"
#include "module/tcb.h"
#include "store/file.h"
#include "tests/unit/commands/commands_test.h"

struct DisturbedCommand {
    const char *label, *sender, *line;
    int confirmation;
    bool never_fails; /* its roster change */
    bool changes = true;
};

static void PrintTo(const DisturbedCommand &command, std::ostream *out)
{
    *out << command.label;
}

static const DisturbedCommand disturbed_commands[] = {
    {"Subscribe", "carol@example.com", "# subscribe\r\n", 0, false},
    {"Unsubscribe", "alice@example.net", "# unsubscribe\r\n", 0, true},
    {"LeavingTheDigest", "dora@example.jp", "# unsubscribe\r\n", 0, true},
    {"On", "dora@example.jp", "# on\r\n", 0, false},
    {"Off", "alice@example.net", "# off\r\n", 0, false},
    {"Digest", "alice@example.net", "# digest\r\n", 0, false},
    {"DigestAgain", "dora@example.jp", "# digest\r\n", 0, false, false},
    {"AskingForAnId", "carol@example.com", "# subscribe\r\n", 3, false},
    {"JoiningWithAnId", "erin@example.com", "# subscribe EEEEEEEEEEEEEEEE\r\n", 3, false},
    {"LeavingWithAnId", "bob@example.jp", "# unsubscribe BBBBBBBBBBBBBBBB\r\n", 3, true},
    {"Push", "owner-mylist@example.jp", "# push\r\n", 0, false},
};

class DisturbedCommands : public CommandTest, public ::testing::WithParamInterface<DisturbedCommand>
{
  protected:
    static constexpr const char *names[] = {"member", "active", "digest", "confirm", "dgtstat"};
    using Files = std::vector<std::string>;

    DisturbedCommands() { archive_sample(1); }

    Files files() const
    {
        Files found;
        for (const char *name : names)
            found.push_back(list.get(name));
        return found;
    }

    void prepare(const DisturbedCommand &command)
    {
        list.put("member",
                 "alice@example.net ON \r\nbob@example.jp OFF\r\ndora@example.jp DGT\r\n");
        list.put("active", "alice@example.net\r\n");
        list.put("digest", "dora@example.jp\r\n");
        list.put("confirm", "erin@example.com 9999/00/01:00:00 EEEEEEEEEEEEEEEE\r\n"
                            "bob@example.jp 9999/00/01:00:00 BBBBBBBBBBBBBBBB\r\n"
                            "x@example.com 0001/00/01:00:00 XXXXXXXXXXXXXXXX\r\n");
        list.put("dgtstat", "1");
        unlink(reply_path().c_str());
        job()->settings.confirmation = command.confirmation;
        send_as(command.sender);
        forget();
    }

    /* What recovery makes of the files. */
    Files recovered() const
    {
        for (const char *name : names) {
            EXPECT_EQ(0, f_recover(list.control(name).c_str())) << name;
            EXPECT_FALSE(exists(list.control(name) + ".new")) << name;
        }
        return files();
    }

    static std::string derived(const std::string &members, const std::string &word)
    {
        std::string text;
        for (size_t at = 0; at < members.size();) {
            const size_t blank = members.find(' ', at), end = members.find("\r\n", at);
            if (members.compare(blank + 1, 3, word) == 0)
                text += members.substr(at, blank - at) + "\r\n";
            at = end + 2;
        }
        return text;
    }

    void expect_whole(const Files &before, const Files &after, int result,
                      const DisturbedCommand &command)
    {
        const Files found = recovered();
        for (size_t i = 0; i < found.size(); ++i)
            EXPECT_TRUE(found[i] == before[i] || found[i] == after[i])
                << names[i] << " is neither old nor new:\n"
                << found[i];
        const bool succeeded = result == 1 && sent().find("Succeeded\r\n") != std::string::npos;
        EXPECT_TRUE(!succeeded || command.never_fails || found == after)
            << "success was told for something else";
        EXPECT_EQ(0, reflect_include(job(), "active"));
        EXPECT_EQ(0, reflect_include(job(), "digest"));
        EXPECT_EQ(derived(found[0], "ON "), list.get("active"));
        EXPECT_EQ(derived(found[0], "DGT"), list.get("digest"));
    }

    /* The files after an undisturbed run. */
    Files undisturbed(const DisturbedCommand &command)
    {
        prepare(command);
        FaultOs clock;
        clock.now = stopped;
        EXPECT_EQ(1, line(command.line));
        return files();
    }
    static constexpr time_t stopped = 1794700800;
};

TEST_P(DisturbedCommands, AFailureOrDeathAtAnyCallLeavesOldOrNewFiles)
{
    const DisturbedCommand &command = GetParam();
    const Files after = undisturbed(command);
    prepare(command);
    const Files before = files();
    EXPECT_EQ(command.changes, before != after);
    int calls = 0;
    for (const int error : {ENOSPC, EIO, -1}) {
        bool disturbed = true;
        for (int nth = 0; disturbed; ++nth) {
            SCOPED_TRACE("call " + std::to_string(nth) + ", error " + std::to_string(error));
            prepare(command);
            int result;
            {
                FaultOs fault;
                fault.now = stopped;
                fault.fail_nth_change(nth, error);
                result = line(command.line);
                disturbed = fault.disturbed();
            }
            expect_whole(before, after, result, command);
            calls += disturbed;
        }
    }
    EXPECT_GT(calls, 30);
}

TEST_P(DisturbedCommands, ADiskThatFillsUpAtAnyWriteLosesNobody)
{
    const DisturbedCommand &command = GetParam();
    const Files after = undisturbed(command);
    prepare(command);
    const Files before = files();
    bool was_full = true;
    for (int writes = 0; was_full; ++writes) {
        SCOPED_TRACE("full after " + std::to_string(writes));
        prepare(command);
        int result;
        {
            FaultOs fault;
            fault.now = stopped;
            was_full = false;
            int done = 0;
            fault.before = [&](const std::string &call, const std::string &) {
                if (call != "write" && call != "pwrite") return 0;
                was_full = was_full || done >= writes;
                return done++ >= writes ? ENOSPC : 0;
            };
            result = line(command.line);
            EXPECT_TRUE(result == 1 || result_code() == 75) << "there will be room again";
        }
        expect_whole(before, after, result, command);
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, DisturbedCommands, ::testing::ValuesIn(disturbed_commands),
                         [](const auto &row) { return row.param.label; });
