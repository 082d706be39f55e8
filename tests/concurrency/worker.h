/* One of a crowd: a host of its own that posts, sends commands or reads archives for a number of
   rounds, and notes what it must find again afterwards. */
#ifndef TESTS_CONCURRENCY_WORKER_H
#define TESTS_CONCURRENCY_WORKER_H

#include <stdio.h>

#include <deque>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/concurrency/board.h"
#include "tests/concurrency/module_calls.h"

enum Action { STARTING, POSTING, COMMANDING, CHECKING, FETCHING, SEARCHING, EXPUNGING, FINISHED };
const char *action_name(int action);

/* Where a crowd's lists lie, and what everybody knows of them. */
struct Ground {
    std::string root;
    int lists;
    std::vector<int> keeps;             /* how many messages each list keeps */
    std::vector<std::string> residents; /* members of every list, who stay and receive */

    static std::string list_name(int list) { return "list" + std::to_string(list); }
    std::string control(int list, const std::string &name) const;
    std::string box(int list, const std::string &name) const;
    /* Whether messages may be removed: the list trims none itself, so that all others stay. */
    bool may_expunge(int list) const { return keeps[static_cast<size_t>(list)] >= 1000; }
    std::string notes(const std::string &name) const { return root + "/notes/" + name; }
};

struct Duty {
    int rounds = 0;
    int commands_in_ten = 0; /* of ten rounds so many are command mails */
    int visits_in_ten = 0;   /* and so many look into an archive; the others are postings */
};

class Worker
{
  public:
    Worker(const Ground &ground, const ModuleCalls &calls, Board *board, int number, Duty duty);

    /* Waits for the start, works, and writes notes("worker.N"): a line "complaint TEXT" for what
       went wrong, "member LIST ADDRESS WORD" for whom it leaves on a roster, "deleted LIST UID" for
       a message that it removed.  A posting's mail is in notes("LIST.NUMBER"). */
    void work();

  private:
    friend struct WorkerOps;

    void round();
    void act(Action action, int list);
    void post(int list);
    void command(int list);
    void visit(Action action, int list);
    int deliver(const std::string &message, int list, bool to_control);
    void take(const char *file, const char *sender, const char *const *recipients,
              const char *recipient_file);
    void take_posting(const std::string &mail, const char *recipient_file);
    std::string locked_recipients(const char *path);
    void complain(const std::string &text);
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }

    const Ground &ground_;
    const ModuleCalls &calls_;
    Board *board_;
    const int number_;
    const Duty duty_;
    std::mt19937 random_;
    FILE *nowhere_ = nullptr;
    int posted_ = 0, list_ = 0, taken_ = 0;
    std::string expected_recipient_, message_id_;
    std::map<std::pair<int, std::string>, std::string> words_; /* status words of its members */
    std::vector<std::pair<int, uint32_t>> deleted_;
    std::vector<std::string> complaints_;
    std::deque<std::string> kept_texts_;
};

#endif
