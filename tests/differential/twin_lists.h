/* One list twice, under the same path: the module works on one while the other is put aside, then
   the plain form works on that.  So whatever names a path says the same in both. */
#ifndef TESTS_TWIN_LISTS_H
#define TESTS_TWIN_LISTS_H

#include <functional>
#include <string>
#include <vector>

#include "tests/support/fake_host.h"
#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"

/* All that one delivery left. */
struct Trace {
    int exit_code = 0;
    std::string reply, result, printed, log, submitted, control, archive;
};

class TwinLists
{
  public:
    TwinLists();
    ~TwinLists();

    /* Does the same to both lists. */
    void change(const std::function<void(TempList &list)> &work);

    /* Posts to both.  The trees are those after the delivery; the second of the plain form's
       rebuild, if it came to one, is made the module's. */
    struct Both {
        Trace module, plain;
    };
    Both post(const std::string &message, const std::vector<std::string> &arguments = {"mylist"});

    bool with_message = true; /* false: the message file is missing */
    FakeHost host;
    TempList list; /* the one that is in place */

  private:
    void swap();
    Trace deliver(int (*main)(DeliveryRequest *), const std::vector<std::string> &arguments);
    OutCapture out_;
    std::string message_;
};

#endif
