/* push: has the running daemon send a list's digest now.

   There is no control socket.  What asks is a file of the list's name in a directory that only the
   owner of the data may enter: who can put one there could change every list by hand as well.  The
   daemon looks there every second and removes the file once the push has been delivered. */
#include <chrono>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "host/base/digest_files.h"
#include "host/base/fd.h"
#include "host/mlistctl/operands.h"

static constexpr auto PATIENCE = std::chrono::seconds(5);
static constexpr auto LOOK = std::chrono::milliseconds(50);

static void ask(const std::string &path)
{
    const Fd request(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!request && errno != EEXIST) fail_on_file("cannot make the request", path);
}

static bool carried_out(const std::string &path)
{
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    struct stat status;
    while (lstat(path.c_str(), &status) == 0) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(LOOK);
    }
    if (errno != ENOENT) fail_on_file("cannot look at", path);
    return true;
}

int push(const Arguments &arguments, const Settings &settings, Output &output)
{
    const ListAddress list = existing_list(arguments, settings);
    if (const auto made = make_digest_directories(settings); !made)
        throw Failure{CTL_SYSTEM, made.error().text, "run it as root or as the owner of the data"};
    const std::string path = asked_push_path(settings, list);
    ask(path);
    if (!carried_out(path))
        throw Failure{CTL_LATER, "the digest of " + list.name() + " has not been pushed yet",
                      "the request stays: mlistd carries it out when it runs and the list is free; "
                      "its log tells more.  To take it back, remove " +
                          path};
    output.pushed(list.name());
    return CTL_OK;
}
