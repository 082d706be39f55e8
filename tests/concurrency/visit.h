/* One visit to a list's archive through the mailbox driver, as a host makes it for a reader, and
   what must be true of the answers whatever others do meanwhile. */
#ifndef TESTS_CONCURRENCY_VISIT_H
#define TESTS_CONCURRENCY_VISIT_H

#include <stdint.h>
#include <stdio.h>

#include <functional>
#include <random>
#include <string>

#include "tests/concurrency/module_calls.h"

class Visit
{
  public:
    /* Opens the archive; what is printed beside answers goes to nowhere. */
    Visit(const ModuleCalls &calls, const std::string &box, FILE *nowhere, std::mt19937 *random,
          std::function<void(const std::string &)> complain);
    ~Visit();
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;

    bool is_open() const { return box_ != nullptr; }

    void check();      /* a few times; the index stays in order */
    void fetch();      /* some message, its text too */
    void search();     /* for something */
    uint32_t remove(); /* some message: its UID, 0 when there is none */

  private:
    uint32_t count() const { return box_->index[0].header_size - 1; }
    uint32_t some_message();
    void synchronise();
    std::string printed(const std::function<void()> &work);

    const ModuleCalls &calls_;
    FILE *nowhere_;
    std::mt19937 *random_;
    std::function<void(const std::string &)> complain_;
    MailboxHandle *box_;
};

#endif
