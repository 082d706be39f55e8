/* Whole deliveries: header lines, bodies, command mails. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "mlist/mlist.h"
#include "store/file.h"
#include "tests/linear/linear.h"
#include "tests/support/fake_host.h"
#include "tests/support/temp_list.h"
#include "tests/support/without_sync.h"
#include "tests/unit/archive/box.h"

static const std::string from = "From: alice@example.net\r\n";
static const std::string plain = from + "Subject: s\r\n\r\n";

static const char *const too_long = "4,096 characters end the delivery";

static const std::vector<Worst> messages = {
    {"one subject", repeated(from + "Subject: ", "x", "\r\n\r\nbody\r\n"), too_long},
    {"subjects", repeated(from, "Subject: x\r\n", "\r\nbody\r\n")},
    {"a subject of words", repeated(from + "Subject: ", "=?ISO-2022-JP?B?GyRC?= ", "\r\n\r\nx\r\n"),
     too_long},
    {"a folded subject", repeated(from + "Subject: x\r\n", " x\r\n", "\r\nbody\r\n")},
    {"one From", repeated("From: ", "(", "\r\n\r\nbody\r\n"), too_long},
    {"From lines", repeated("", from, "\r\nbody\r\n"), too_long},
    {"Received lines", repeated(from, "Received: x\r\n", "\r\nbody\r\n")},
    {"fields", repeated(from, "X: x\r\n", "\r\nbody\r\n")},
    {"carriage returns in the header", repeated(from, "\r", "\r\n\r\nbody\r\n"), too_long},
    {"content types", repeated(from, "Content-Type: text/plain\r\n", "\r\nbody\r\n")},
    {"line ends", repeated(plain, "\r\n", "")},
    {"line feeds", repeated(plain, "\n", "")},
    {"carriage returns", repeated(plain, "\r", "")},
    {"one line", repeated(plain, "x", "")},
    {"no header", repeated("x"), too_long},
};

class LinearDelivery : public ::testing::Test
{
  protected:
    LinearDelivery()
    {
        default_settings(&g_mlit);
        list_.put("init", "subject=edit\r\nsubjectf=[%M:%0S]\r\nvstrml=grant\r\n");
        list_.put("member", "alice@example.net ON \r\n");
        list_.put("active", "alice@example.net\r\n");
        std::string box = list_.box();
        EXPECT_EQ(1, mlmbx_create(box.c_str()));
    }

    void deliver(const std::string &message, const std::vector<std::string> &arguments)
    {
        const std::string file = list_.root() + "/message";
        write_file(file, message);
        (void)host_.deliver(file, "example.jp", arguments);
        host_.submissions.clear();
    }

    WithoutSync no_sync_;
    const Discard discard_;
    TempList list_;
    FakeHost host_;
};

TEST_F(LinearDelivery, Postings)
{
    demand_linear(messages, [&](std::string &text) { deliver(text, {"mylist"}); });
}

static const char *const long_command = "1,024 characters end the delivery";

TEST_F(LinearDelivery, CommandMails)
{
    demand_linear({{"lines that are no commands", repeated(plain, "x\r\n", "")},
                   {"number signs alone", repeated(plain, "#\r\n", "")},
                   {"blanks behind a number sign", repeated(plain, "#  \r\n", "")},
                   {"line feeds", repeated(plain, "\n", "")},
                   {"one line", repeated(plain, "x", ""), long_command},
                   {"blanks in front", repeated(plain, " ", "# none\r\n"), long_command},
                   {"a long command", repeated(plain + "# ", "x", "\r\n"), long_command}},
                  [&](std::string &text) {
                      deliver(text, {"mylist", "/c"});
                  });
}

/* Replies are composed, and go nowhere: a file made and removed for each would be the kernel's
   time, not the module's. */
class WithoutReplyFiles
{
  public:
    WithoutReplyFiles() : former_(os), calls_(*os)
    {
        nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
        calls_.open = [](const char *path, int flags, mode_t mode) {
            return is_reply(path) ? nowhere : open(path, flags, mode);
        };
        calls_.close = [](int fd) { return fd == nowhere ? 0 : close(fd); };
        calls_.unlink = [](const char *path) { return is_reply(path) ? 0 : unlink(path); };
        os = &calls_;
    }
    ~WithoutReplyFiles()
    {
        os = former_;
        close(nowhere);
    }

  private:
    static bool is_reply(const char *path) { return strstr(path, "/msg/cmdrpy.") != nullptr; }

    static int nowhere;
    const OsCalls *former_;
    OsCalls calls_;
};

int WithoutReplyFiles::nowhere;

static int replies;

static int take_reply(const char *, const char *, const char *const *, const char *, char *)
{
    ++replies;
    return 1;
}

/* Every command is answered by a mail of its own, whatever it is.  A mail of the shortest ones has
   more than sixteen million of them: LINEAR_ALL sends that. */
TEST_F(LinearDelivery, Commands)
{
    const WithoutReplyFiles no_files;
    host_.request.submit = take_reply;
    const auto send = [&](std::string &text) {
        replies = 0;
        deliver(text, {"mylist", "/c"});
        EXPECT_EQ(std::count(text.begin(), text.end(), '#'), replies);
    };
    demand_linear({{"long lines", repeated(plain, "# " + std::string(1000, 'x') + "\r\n", "")},
                   {"long beginnings of a command",
                    repeated(plain, std::string(1000, ' ') + "#\tunsubscribX\r\n", "")}},
                  send);
    demand_linear({{"short lines", repeated(plain, "#x\r\n", "")},
                   {"beginnings of commands", repeated(plain, "# unsubscribX\r\n", "")}},
                  send, MIB);
}

/* What commands read from an archive. */
TEST_F(LinearDelivery, ArchivedMessages)
{
    list_.put("init", "journal=9\r\n");
    deliver(plain + "x\r\n", {"mylist"});
    ASSERT_TRUE(exists(list_.box("#msg/1")));
    host_.request.submit = take_reply;
    demand_linear({{"one line", repeated("x")},
                   {"carriage returns", repeated("\r")},
                   {"dates", repeated("Date: 1\r\n")},
                   {"senders", repeated("From: <\r\n")},
                   {"subjects", repeated("Subject: Re: [\r\n")},
                   {"a folded sender", repeated("From: a\r\n", " \r\n", "")},
                   {"a folded subject", repeated("Subject: a\r\n", " \r\n", "")},
                   {"lines of a body", repeated("\n")}},
                  [&](std::string &text) {
                      write_file(list_.box("#msg/1"), text);
                      replies = 0;
                      deliver(plain + "# summary 1\r\n# get 1\r\n", {"mylist", "/c"});
                      EXPECT_EQ(2, replies);
                  });
}
