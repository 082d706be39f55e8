#include "host/mlistd/command_count.h"

#include <fcntl.h>
#include <unistd.h>

#include <string_view>

#include "host/base/fd.h"

/* Commands that begin in a piece; where it left off counts for the next. */
static size_t commands_in(std::string_view piece, bool &at_line_start)
{
    size_t count = 0;
    for (const char c : piece) {
        if (at_line_start && c == '#') ++count;
        at_line_start = c == '\n' || (at_line_start && (c == ' ' || c == '\t'));
    }
    return count;
}

Result<size_t> count_commands(const std::string &file, size_t most)
{
    const Fd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return system_error(file);
    size_t count = 0;
    bool at_line_start = true;
    char piece[16 * 1024];
    while (count <= most) {
        const ssize_t n = read(fd.get(), piece, sizeof(piece));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return system_error(file);
        if (n == 0) break;
        count += commands_in({piece, static_cast<size_t>(n)}, at_line_start);
    }
    return count;
}
