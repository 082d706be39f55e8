/* Apart from the rest of the host, so that a test of a lower layer links without the pipeline. */
#include "tests/support/fake_host.h"

int FakeHost::deliver(const std::string &message_file, const std::string &domain,
                      const std::vector<std::string> &arguments)
{
    std::string program = "mlist";
    std::vector<std::string> words = arguments;
    std::vector<char *> slots = {program.data()};
    for (std::string &word : words)
        slots.push_back(word.data());
    slots.push_back(nullptr);
    request.message_file = message_file.c_str();
    request.domain = domain.c_str();
    request.argument_count = static_cast<int32_t>(arguments.size());
    request.argument_vector = slots.data();
    return ModuleMain(&request);
}
