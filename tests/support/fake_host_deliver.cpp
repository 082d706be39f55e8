/* Apart from the rest of the host, so that a test of a lower layer links without the pipeline. */
#include "tests/support/fake_host.h"

int FakeHost::deliver(const std::string &message_file, const std::string &domain,
                      const std::vector<std::string> &arguments)
{
    return deliver_to(ModuleMain, message_file, domain, arguments);
}
