/* Threads and processes on some lists at once, and what must be true when they are done. */
#ifndef TESTS_CONCURRENCY_CROWD_H
#define TESTS_CONCURRENCY_CROWD_H

#include <memory>
#include <string>
#include <vector>

#include "tests/concurrency/worker.h"

class Crowd
{
  public:
    /* Lists, each with its keep count. */
    Crowd(const ModuleCalls &calls, std::vector<int> keeps);
    ~Crowd();
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;

    void add_threads(int count, Duty duty);   /* of this process */
    void add_processes(int count, Duty duty); /* a thread each */

    /* Lets them work, and expects that no posting was lost or doubled, that numbers, archives,
       indexes and digest status cover exactly the postings, and that rosters and what is derived
       from them say what the commands left. */
    void run_and_expect_order();

  private:
    void make_list(int list);
    std::vector<pid_t> start_processes(Board *board);
    std::vector<std::string> notes_of_all(const std::string &prefix) const;
    void remove_the_deleted(int list);
    void expect_no_complaints();
    void expect_archive(int list);
    void expect_index(int list, uint32_t postings, const std::vector<uint32_t> &kept);
    void expect_rosters(int list);
    void expect_nothing_left(int list);
    uint32_t count_postings(int list) const;
    std::vector<uint32_t> kept_of(int list, uint32_t postings) const;

    ModuleCalls calls_;
    Ground ground_;
    std::vector<Duty> threads_, processes_;
};

#endif
