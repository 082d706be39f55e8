/* Any text as a From value, in memory of exactly its size: the address beside a plain way to it. */
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "fuzz/demand.h"
#include "headers/head.h"
#include "tests/reference/owner.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 5000) return 0;
    std::string from(reinterpret_cast<const char *>(data), size);
    from.resize(strlen(from.c_str()));
    std::vector<char> text(from.c_str(), from.c_str() + from.size() + 1);
    make_owner_string(text.data());
    const std::string address = text.data();
    demand(address.size() <= from.size());
    demand(address == (from.size() > 4096 ? from : reference::owner(from)));
    return 0;
}
