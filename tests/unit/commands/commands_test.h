/* What the tests of the commands share: a thread that delivers a command mail to a list with an
   archive. */
#ifndef TESTS_UNIT_COMMANDS_COMMANDS_TEST_H
#define TESTS_UNIT_COMMANDS_COMMANDS_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "commands/cmd.h"
#include "commands/reply.h"
#include "tests/support/fake_host.h"
#include "tests/support/fault_os.h"
#include "tests/support/host_texts.h"
#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"
#include "tests/support/without_sync.h"

/* Lines joined with CR LF, the last one included. */
std::string crlf(const std::vector<std::string> &lines);

/* The sender is carol@example.com, no member, with the Message-ID c1@example.com; the list mylist
   of example.jp has two members and an empty archive. */
class CommandTest : public ::testing::Test
{
  protected:
    CommandTest();
    ~CommandTest() override;

    DeliveryJob *job() { return list.job(); }
    void send_as(const std::string &sender); /* the pipeline's access flag is set as it would be */

    /* Stores a message in the archive; numbers have to ascend. */
    void archive(uint32_t number, const std::string &message);
    void archive_sample(uint32_t number);            /* a small message that differs by number */
    static std::string sample(uint32_t number);      /* its text */
    std::string message_path(uint32_t number) const; /* its file */

    int line(const std::string &text); /* command_proc() */
    std::string reply_path() const;    /* msg/cmdrpy.TID */
    std::string reply_file() const { return read_file(reply_path()); }
    std::string sent(size_t n = 0) const; /* content of the n-th mail handed over */
    void forget();                        /* mails, log lines, result code and reply text so far */
    int result_code() const;

    /* The log lines of levels 1 to 10 since the last take, as "LEVEL/NUMBER text", with the list's
       directories shortened to "CTL" and "BOX" and the thread's id to "TID". */
    std::vector<std::string> log();
    bool has_log(const std::string &line);

    WithoutSync quick;
    FakeHost host;
    TempList list;
    OutCapture out;
    HostTexts texts;

  private:
    std::string former_root_;
    std::vector<uint32_t> index_;
    std::vector<std::string> lines_; /* taken and not yet asked for */
};

/* The call of that name on a path that ends so fails, from its turn (0-based) on. */
std::function<int(const std::string &, const std::string &)>
fail_call(const std::string &name, const std::string &ending, int error, int turn = 0);

#endif
