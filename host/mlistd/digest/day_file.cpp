#include "host/mlistd/digest/day_file.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "host/base/fd.h"
#include "host/base/files.h"
#include "host/base/regular_file.h"
#include "host/base/text.h"

std::optional<Day> read_day_file(const std::string &path)
{
    const Fd file = open_regular(path, O_NOFOLLOW);
    char text[64];
    const ssize_t size = file ? read(file.get(), text, sizeof(text)) : -1;
    if (size < 0) return std::nullopt;
    return parse_day(trim(std::string_view(text, static_cast<size_t>(size))));
}

static Result<void> write_synced(const std::string &path, const std::string &text)
{
    const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return system_error(path);
    errno = ENOSPC; /* of a write that comes out short */
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(file.get()) != 0)
        return system_error(path);
    return {};
}

/* No list's record has the working name: theirs hold an "@". */
Result<void> write_day_file(const std::string &path, Day day)
{
    const std::string working = path.substr(0, path.rfind('/')) + "/making";
    auto written = write_synced(working, day_text(day) + "\n");
    if (!written) return written;
    if (rename(working.c_str(), path.c_str()) != 0) return system_error(path);
    return sync_name(path);
}
