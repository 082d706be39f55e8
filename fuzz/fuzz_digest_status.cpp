/* Any bytes as the numbers that wait for a digest.  The first two bytes are a number to add: if it
   can be added, exactly it comes to the numbers that the line named. */
#include <set>

#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "store/file.h"
#include "tests/reference/number_args.h"

/* Whether a line is one that the module wrote itself: numbers and ranges of numbers, of no more
   digits than a number can have, between single commas. */
static bool is_regular(const std::string &line)
{
    size_t digits = 0;
    bool in_range = false;
    for (const char c : line + ",") {
        if (c >= '0' && c <= '9') {
            if (++digits > 9) return false;
        } else if (digits == 0 || (c != ',' && (c != '-' || in_range))) {
            return false;
        } else {
            in_range = c == '-';
            digits = 0;
        }
    }
    return true;
}

/* The last number of a regular line. */
static uint32_t last_of(const std::string &line)
{
    return static_cast<uint32_t>(std::stoul(line.substr(line.find_last_of(",-") + 1)));
}

static std::string contents_with(const std::string &line, uint32_t number)
{
    const std::string added = std::to_string(number);
    if (line.find_first_not_of('0') == std::string::npos) return added; /* 0 is no number */
    if (number != last_of(line) + 1) return line + "," + added;
    const size_t joint = line.find_last_of(",-");
    const bool range = joint != std::string::npos && line[joint] == '-';
    return (range ? line.substr(0, joint) : line) + "-" + added;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QuickList quick;
    if (size < 2 || size > 20000) return 0;
    const uint32_t number = 1 + data[0] + 256u * data[1];
    const std::string path = quick.list.control("dgtstat");
    const std::string before(reinterpret_cast<const char *>(data + 2), size - 2);
    quick.list.put("dgtstat", before);

    const int result = set_dstfile(quick.job(), path.c_str(), number);
    const std::string after = quick.list.get("dgtstat");
    demand(result == 0 || after == before);
    demand(result != 0 || after.size() < LINE_SIZE);
    if (before.empty() || (before.size() < 4000 && is_regular(before))) {
        demand(result == 0);
        demand(after == contents_with(before, number));
    }
    /* a line end that somebody put there makes two lines of it */
    if (result == 0 && before.find('\n') == std::string::npos) {
        char line[LINE_SIZE] = "";
        demand(get_dstfile(quick.job(), path.c_str(), line, sizeof(line)) == 0);
        demand(line == after);
    }
    demand(reset_dstfile(quick.job(), path.c_str()) == 0 && quick.list.get("dgtstat").empty());
    return 0;
}
