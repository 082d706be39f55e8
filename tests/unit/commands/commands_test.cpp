#include "tests/unit/commands/commands_test.h"

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "commands/reply_text.h"
#include "mlist/mlist.h"
#include "module/tcb.h"
#include "store/file.h"

extern "C" int g_debug;
int g_debug = 0; /* as a host has it */

std::string crlf(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\r\n";
    return text;
}

static std::string fixed_root;

CommandTest::CommandTest()
{
    umask(017);
    former_root_ = fixed_control_root;
    fixed_root = list.root() + "/control";
    fixed_control_root = fixed_root.c_str();
    tcbcreate(&host.request);
    host.request.reply_text[0] = '\0';
    job()->submit = host.request.submit;
    strcpy(job()->settings.reply_to, "mylist@example.jp");
    strcpy(job()->message_id, "c1@example.com");
    job()->flags |= JOB_COMMAND_MAIL;
    list.put("member", "alice@example.net ON \r\nbob@example.jp OFF\r\n");
    list.put("active", "alice@example.net\r\n");
    const std::string box = list.box();
    EXPECT_EQ(1, mlmbx_create(box.c_str()));
    const std::string bytes = read_file(list.box("#mix"));
    index_.resize(bytes.size() / 4);
    memcpy(index_.data(), bytes.data(), bytes.size());
    send_as("carol@example.com");
    forget();
}

CommandTest::~CommandTest()
{
    tcbfree();
    EXPECT_EQ(0, host.live_blocks) << "host memory was not given back";
    fixed_control_root = "/home/mail/#mlcontrol";
    EXPECT_EQ(former_root_, fixed_control_root);
}

void CommandTest::send_as(const std::string &sender)
{
    snprintf(job()->sender, sizeof(job()->sender), "%s", sender.c_str());
    char line[LINE_SIZE];
    const int looked_up = get_member(job(), job()->sender, line);
    job()->access_result = looked_up == 0 && line[0] != '\0';
}

std::string CommandTest::message_path(uint32_t number) const
{
    return list.box("#msg/" + std::to_string(number));
}

void CommandTest::archive(uint32_t number, const std::string &message)
{
    write_file(message_path(number), message);
    const size_t header = message.find("\r\n\r\n");
    index_.insert(index_.end(),
                  {number, MESSAGE_RECENT,
                   header == std::string::npos ? 0 : static_cast<uint32_t>(header + 4),
                   static_cast<uint32_t>(message.size())});
    index_[0] = number + 1;
    ++index_[2];
    write_file(list.box("#mix"),
               std::string(reinterpret_cast<const char *>(index_.data()), index_.size() * 4));
}

std::string CommandTest::sample(uint32_t number)
{
    const std::string n = std::to_string(number);
    return crlf({"Date: Sun, 15 Nov 2026 09:13:57 +0900", "From: alice@example.net",
                 "Subject: Number " + n, "", "Text " + n + "."});
}

void CommandTest::archive_sample(uint32_t number)
{
    archive(number, sample(number));
}

int CommandTest::line(const std::string &text)
{
    return command_proc(text.c_str(), job());
}

std::string CommandTest::reply_path() const
{
    return list.control("msg/cmdrpy." + std::to_string(gettid()));
}

std::string CommandTest::sent(size_t n) const
{
    return n < host.submissions.size() ? host.submissions[n].content : "(no such mail)";
}

void CommandTest::forget()
{
    host.submissions.clear();
    host.request.reply_text[0] = '\0';
    thread_context()->result_code = 0;
    (void)take_log();
    (void)out.take();
    lines_.clear();
}

int CommandTest::result_code() const
{
    return thread_context()->result_code;
}

static void replace_all(std::string *text, const std::string &from, const std::string &to)
{
    for (size_t at; (at = text->find(from)) != std::string::npos;)
        text->replace(at, from.size(), to);
}

std::vector<std::string> CommandTest::log()
{
    std::vector<std::string> lines = std::exchange(lines_, {});
    for (std::string text : take_log_lines()) {
        replace_all(&text, list.control(), "CTL");
        replace_all(&text, list.box(), "BOX");
        replace_all(&text, "." + std::to_string(gettid()), ".TID");
        lines.push_back(text);
    }
    return lines;
}

bool CommandTest::has_log(const std::string &wanted)
{
    lines_ = log();
    if (std::find(lines_.begin(), lines_.end(), wanted) != lines_.end()) return true;
    std::string all;
    for (const std::string &text : lines_)
        all += "  " + text + "\n";
    ADD_FAILURE() << "not logged: " << wanted << "\nbut:\n" << all;
    return false;
}

std::function<int(const std::string &, const std::string &)>
fail_call(const std::string &name, const std::string &ending, int error, int turn)
{
    return [=, count = 0](const std::string &call, const std::string &path) mutable {
        if (call != name || !path.ends_with(ending)) return 0;
        return count++ >= turn ? error : 0;
    };
}
