/* The one place where tests, fuzzers and benchmarks fill in a Delivery request.  A header alone:
   some of them are linked with nothing of the module's. */
#ifndef TESTS_OWN_REQUEST_H
#define TESTS_OWN_REQUEST_H

#include <stdlib.h>

#include <string>
#include <vector>

#include "mlist/mlist.h"

/* What a host does for a delivery. */
struct HostOperations {
    SubmitOp submit;
    KeepTextOp keep_text;
    AllocateOp allocate = malloc;
    ReleaseOp release = free;
};

/* Slots 1 and up of a posting to the list, or of a command mail. */
inline std::vector<std::string> arguments_for(const std::string &list, bool to_control)
{
    return to_control ? std::vector<std::string>{list, "/c"} : std::vector<std::string>{list};
}

/* A request and the texts that come back in it; stays where it is. */
class OwnRequest
{
  public:
    explicit OwnRequest(const HostOperations &host)
    {
        request.submit = host.submit;
        request.reply_text = reply_text;
        request.result_text = result_text;
        request.allocate = host.allocate;
        request.release = host.release;
        request.keep_text = host.keep_text;
    }
    OwnRequest(const OwnRequest &) = delete;
    OwnRequest &operator=(const OwnRequest &) = delete;

    /* Hands the mail to ModuleMain(), or what stands in for it; arguments as slots 1 and up.
       Answers the exit code. */
    int deliver(int (*main)(DeliveryRequest *), const std::string &message_file,
                const std::string &domain, std::vector<std::string> arguments)
    {
        std::vector<char *> slots = {nullptr}; /* nobody looks at slot 0, or behind the last */
        for (std::string &argument : arguments)
            slots.push_back(argument.data());
        request.message_file = message_file.c_str();
        request.argument_count = static_cast<int32_t>(arguments.size());
        request.argument_vector = slots.data();
        request.domain = domain.c_str();
        return main(&request);
    }

    DeliveryRequest request = {};
    char reply_text[MLIST_REPLY_TEXT_SIZE] = "";
    char result_text[MLIST_RESULT_TEXT_SIZE] = "";
};

#endif
