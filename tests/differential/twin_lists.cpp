#include "tests/differential/twin_lists.h"

#include <gtest/gtest.h>
#include <string.h>

#include <filesystem>

#include "mlist/mlist.h"
#include "module/module_vars.h"
#include "module/os.h"
#include "store/file.h"
#include "tests/reference/posting_literal.h"

namespace fs = std::filesystem;

/* The clock stands still, so that both forms see one time; nothing is synced, for no machine dies
   here. */
static const OsCalls timeless = [] {
    OsCalls calls = kernel_calls;
    calls.fsync = [](int) { return 0; };
    calls.time = [](time_t *now) -> time_t {
        if (now != nullptr) *now = 1794701640;
        return 1794701640;
    };
    return calls;
}();

TwinLists::TwinLists()
{
    os = &timeless;
    default_settings(&g_mlit);
    add_resent_header = force_remove_bracket = ml_maxmsgsize = ml_webpasswd = 0;
    const std::string box = list.box();
    EXPECT_EQ(1, mlmbx_create(box.c_str()));
    fs::create_directory(list.root() + "/aside");
    for (const char *tree : {"control", "box"})
        fs::copy(list.root() + "/" + tree, list.root() + "/aside/" + tree,
                 fs::copy_options::recursive);
    message_ = list.root() + "/message";
    (void)out_.take();
    (void)take_log();
}

TwinLists::~TwinLists()
{
    os = &kernel_calls;
}

void TwinLists::swap()
{
    for (const std::string tree : {"/control", "/box"}) {
        fs::rename(list.root() + tree, list.root() + "/between");
        fs::rename(list.root() + "/aside" + tree, list.root() + tree);
        fs::rename(list.root() + "/between", list.root() + "/aside" + tree);
    }
}

void TwinLists::change(const std::function<void(TempList &list)> &work)
{
    for (int i = 0; i < 2; ++i) {
        work(list);
        swap();
    }
}

static std::string text_of(const std::vector<Submission> &submissions)
{
    std::string text;
    for (const Submission &s : submissions) {
        text += s.file + "\n" + s.content + "\nfrom " + s.envelope_sender + "\n";
        for (const std::string &recipient : s.recipients)
            text += "to " + recipient + "\n";
        if (s.has_recipient_file)
            text += "to those of " + s.recipient_file + "\n" + s.recipient_file_content;
        if (!s.result_was_zeroed) text += "the result buffer was not empty\n";
    }
    return text;
}

/* Shows whatever errno the last call left, also where none failed. */
static const std::string with_stray_errno = "tls get value in get_rcode err=";

static std::string text_of(const std::vector<LogLine> &log)
{
    std::string text;
    for (const LogLine &line : log)
        text += (line.system ? "system " : "delivery ") + std::to_string(line.level) + "/" +
                std::to_string(line.msgno) + " " +
                (line.text.starts_with(with_stray_errno) ? with_stray_errno : line.text) + "\n";
    return text;
}

Trace TwinLists::deliver(int (*main)(DeliveryRequest *), const std::vector<std::string> &arguments)
{
    host.submissions.clear();
    host.set_result("as it was");

    Trace trace;
    trace.exit_code = host.deliver_to(main, message_, "example.jp", arguments);
    EXPECT_EQ(0, host.live_blocks) << "memory of the delivery was not given back";
    trace.reply = host.reply();
    trace.result = host.result();
    trace.submitted = text_of(host.submissions);
    trace.printed = out_.take();
    trace.log = text_of(take_log());
    trace.control = tree_text(list.control());
    return trace;
}

/* A rebuild gives the index the second in which it happened. */
static void adopt_validity(const std::string &from, const std::string &to)
{
    const std::string source = read_file(from);
    std::string target = read_file(to);
    if (source.size() < 16 || target.size() < 16) return;
    write_file(to, target.replace(4, 4, source, 4, 4));
}

TwinLists::Both TwinLists::post(const std::string &message,
                                const std::vector<std::string> &arguments)
{
    write_file(message_, message);
    if (!with_message) fs::remove(message_);
    Both both;
    both.module = deliver(ModuleMain, arguments);
    both.module.archive = tree_text(list.box());
    const std::string mix = list.box("#mix").substr(list.root().size());
    swap();
    both.plain = deliver(literal::post, arguments);
    if (both.plain.log.find("/636 ") != std::string::npos)
        adopt_validity(list.root() + "/aside" + mix, list.root() + mix);
    both.plain.archive = tree_text(list.box());
    swap();
    return both;
}
