/* Whole deliveries: header lines, bodies, command mails. */
#include <gtest/gtest.h>

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

/* The sender is looked up for every line: calls of the kernel, which are no steps but take their
   time. */
TEST_F(LinearDelivery, CommandMails)
{
    demand_linear(
        {{"lines that are no commands", repeated(plain, "x\r\n", "")},
         {"number signs alone", repeated(plain, "#\r\n", "")},
         {"blanks in front", repeated(plain, " ", "# none\r\n")}},
        [&](std::string &text) {
            deliver(text, {"mylist", "/c"});
        },
        64 * KIB);
}
