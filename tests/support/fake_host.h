/* A host in memory: a Delivery request whose operations record what the module did. */
#ifndef TESTS_FAKE_HOST_H
#define TESTS_FAKE_HOST_H

#include <functional>
#include <string>
#include <vector>

#include "tests/support/own_request.h"

struct Submission {
    std::string file, content; /* the message file's path and what it held */
    std::string envelope_sender;
    bool has_recipients = false;
    std::vector<std::string> recipients;
    bool has_recipient_file = false;
    std::string recipient_file, recipient_file_content;
    bool result_was_zeroed = false; /* all of the result buffer was zero at the call */
};

/* One per thread at a time; binds itself to the constructing thread. */
class FakeHost : OwnRequest
{
  public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost &) = delete;
    FakeHost &operator=(const FakeHost &) = delete;

    /* Runs ModuleMain() on a message file; arguments as slots 1 and up. */
    int deliver(const std::string &message_file, const std::string &domain,
                const std::vector<std::string> &arguments);

    /* The same with what stands in for ModuleMain(). */
    int deliver_to(int (*main)(DeliveryRequest *), const std::string &message_file,
                   const std::string &domain, const std::vector<std::string> &arguments)
    {
        return OwnRequest::deliver(main, message_file, domain, arguments);
    }

    using OwnRequest::request;
    std::string reply() const { return reply_text; }
    std::string result() const { return result_text; }
    void set_result(const std::string &text);          /* fills the request's result buffer */
    std::vector<Submission> submissions;               /* in order */
    std::function<void(const Submission &)> submitted; /* told of each that is taken, if set */
    int accept = 1;                                    /* what submit answers */
    std::string result_to_write;                       /* what submit leaves in its result buffer */
    long live_blocks = 0;                              /* allocated and not yet released */
    long allocations = 0;
    long fail_allocation = -1; /* the n-th allocation from now (0 the next) fails, -1 none */

  private:
    std::vector<char *> kept_;
    friend struct FakeHostOps;
};

#endif
