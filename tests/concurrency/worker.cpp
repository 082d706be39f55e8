#include "tests/concurrency/worker.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/concurrency/notes.h"
#include "tests/concurrency/visit.h"
#include "tests/support/own_request.h"

const char *action_name(int action)
{
    static const char *const names[] = {"starting", "posting",   "sending a command", "checking",
                                        "fetching", "searching", "expunging",         "finished"};
    return names[action];
}

std::string Ground::control(int list, const std::string &name) const
{
    return root + "/control/example.jp/" + list_name(list) + "/" + name;
}

std::string Ground::box(int list, const std::string &name) const
{
    return root + "/box/example.jp/" + list_name(list) + "/INBOX" +
           (name.empty() ? "" : "/" + name);
}

Worker::Worker(const Ground &ground, const ModuleCalls &calls, Board *board, int number, Duty duty)
    : ground_(ground), calls_(calls), board_(board), number_(number), duty_(duty),
      random_(static_cast<unsigned>(number) + 1)
{
}

void Worker::complain(const std::string &text)
{
    complaints_.push_back(text);
}

/* -- the host's operations -- */

static thread_local Worker *current_worker;

struct WorkerOps {
    static int submit(const char *file, const char *sender, const char *const *recipients,
                      const char *recipient_file, char *)
    {
        current_worker->take(file, sender, recipients, recipient_file);
        return 1;
    }

    static char *keep_text(const char *text)
    {
        return current_worker->kept_texts_.emplace_back(text).data();
    }
};

int Worker::deliver(const std::string &message, int list, bool to_control)
{
    const std::string file = ground_.notes("message." + std::to_string(number_));
    write_note(file, message);
    OwnRequest own({WorkerOps::submit, WorkerOps::keep_text});
    taken_ = 0;
    list_ = list;
    const int code = own.deliver(calls_.deliver, file, "example.jp",
                                 arguments_for(Ground::list_name(list), to_control));
    kept_texts_.clear();
    if (code != 0) complain("exit " + std::to_string(code) + ": " + own.reply_text);
    if (taken_ != 1) complain(std::to_string(taken_) + " mails were submitted");
    return code;
}

/* -- what the module submits -- */

void Worker::take(const char *file, const char *sender, const char *const *recipients,
                  const char *recipient_file)
{
    ++taken_;
    if (sender != "owner-" + Ground::list_name(list_) + "@example.jp")
        complain(std::string("sent as ") + sender);
    const std::string mail = read_note(file);
    if (expected_recipient_.empty()) return take_posting(mail, recipient_file);
    if (recipients == nullptr || recipients[0] != expected_recipient_ || recipients[1] != nullptr)
        complain("the answer to " + expected_recipient_ + " goes to somebody else");
    if (mail.find("Succeeded") == std::string::npos) complain("a command failed: " + mail);
}

/* As a host has to read them: under the list's lock, a replacement finished first. */
std::string Worker::locked_recipients(const char *path)
{
    const int lock = open(ground_.control(list_, "lock").c_str(), O_RDWR | O_CLOEXEC);
    if (lock < 0 || flock(lock, LOCK_EX) != 0) abort();
    if (calls_.recover(path) != 0) complain("f_recover failed");
    const std::string text = read_note(path);
    close(lock);
    return text;
}

void Worker::take_posting(const std::string &mail, const char *recipient_file)
{
    const size_t at = mail.find("\r\nX-Mail-Count: ");
    const long number = at == std::string::npos ? 0 : atol(mail.c_str() + at + 16);
    if (mail.find("Message-ID: " + message_id_ + "\r\n") == std::string::npos)
        complain("somebody else's mail instead of " + message_id_);
    if (!make_note(ground_.notes(Ground::list_name(list_) + "." + std::to_string(number)), mail))
        complain("number " + std::to_string(number) + " was given before");
    const std::string recipients = "\r\n" + locked_recipients(recipient_file);
    for (const std::string &resident : ground_.residents)
        if (recipients.find("\r\n" + resident + "\r\n") == std::string::npos)
            complain(resident + " is not among the recipients");
    if (!recipients.ends_with("\r\n")) complain("the recipients end in the middle of a line");
}

/* -- rounds -- */

void Worker::post(int list)
{
    message_id_ = "<" + std::to_string(number_) + "." + std::to_string(posted_++) + "@example.net>";
    expected_recipient_.clear();
    (void)deliver("From: " + ground_.residents[0] + "\r\nSubject: Hello\r\nMessage-ID: " +
                      message_id_ + "\r\n\r\n" + std::string(below(5000), 'x') + "\r\n",
                  list, false);
}

/* Sends one of the worker's own people's commands, which only it changes: so it knows the answer.
 */
void Worker::command(int list)
{
    static const struct {
        const char *line, *word; /* the word on the roster afterwards */
    } commands[] = {{"# subscribe", "ON "},
                    {"# off", "OFF"},
                    {"# on", "ON "},
                    {"# digest", "DGT"},
                    {"# unsubscribe", ""}};
    expected_recipient_ =
        "w" + std::to_string(number_) + "." + std::to_string(below(3)) + "@example.com";
    std::string &word = words_[{list, expected_recipient_}];
    const auto &chosen = commands[word.empty() ? 0 : 1 + below(4)];
    if (deliver("From: " + expected_recipient_ + "\r\nSubject: command\r\n\r\n" + chosen.line +
                    "\r\n",
                list, true) == 0)
        word = chosen.word;
}

void Worker::visit(Action action, int list)
{
    Visit visit(calls_, ground_.box(list, ""), nowhere_, &random_,
                [this](const std::string &text) { complain(text); });
    if (!visit.is_open()) return;
    switch (action) {
    case FETCHING:
        return visit.fetch();
    case SEARCHING:
        return visit.search();
    case EXPUNGING:
        if (const uint32_t uid = visit.remove(); uid != 0) deleted_.push_back({list, uid});
        return;
    default:
        return visit.check();
    }
}

void Worker::act(Action action, int list)
{
    if (action == POSTING)
        post(list);
    else if (action == COMMANDING)
        command(list);
    else
        visit(action, list);
}

void Worker::round()
{
    const int list = static_cast<int>(below(static_cast<uint32_t>(ground_.lists)));
    const int chance = static_cast<int>(below(10));
    Action action = POSTING;
    if (chance < duty_.commands_in_ten)
        action = COMMANDING;
    else if (chance < duty_.commands_in_ten + duty_.visits_in_ten)
        action = static_cast<Action>(CHECKING + below(ground_.may_expunge(list) ? 4 : 3));
    BoardLine &line = board_->line(number_);
    line.list = list;
    line.action = action;
    act(action, list);
    ++line.steps;
}

void Worker::work()
{
    current_worker = this;
    nowhere_ = fopen("/dev/null", "we");
    calls_.set_output(nowhere_);
    board_->enter(number_);
    board_->wait_for_start();
    for (int done = 0; done < duty_.rounds; ++done)
        round();
    board_->line(number_).action = FINISHED;
    calls_.set_output(nullptr);
    fclose(nowhere_);

    std::string notes;
    for (const std::string &complaint : complaints_)
        notes += "complaint " + complaint + "\n";
    for (const auto &[member, word] : words_)
        if (!word.empty())
            notes +=
                "member " + std::to_string(member.first) + " " + member.second + " " + word + "\n";
    for (const auto &[list, uid] : deleted_)
        notes += "deleted " + std::to_string(list) + " " + std::to_string(uid) + "\n";
    write_note(ground_.notes("worker." + std::to_string(number_)), notes);
}
