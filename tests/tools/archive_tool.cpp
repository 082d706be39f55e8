/* Looks into a list's archive as a host does: FETCH, SEARCH and checks from the command line, with
   what the driver answers on standard output.  For whoever debugs a host; it needs nothing but the
   library and its headers. */
#include <getopt.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sysexits.h>

#include <string>
#include <vector>

#include "mlist/mlist.h"

namespace
{
struct Options {
    bool uid = false;
    bool write = false;
    const char *charset = nullptr;
};

const char usage_text[] =
    "usage: archive_tool [OPTION]... MAILBOX COMMAND [ARGUMENT]...\n"
    "\n"
    "Runs one operation of the archive driver on MAILBOX, the directory with #mix and #msg in it,\n"
    "and prints what the driver prints.\n"
    "\n"
    "  open                  what opening the mailbox announces\n"
    "  check                 synchronises with the index, as NOOP does\n"
    "  fetch SET ITEM...     FETCH of a message set such as 1,3:5,7:*\n"
    "  search CRITERIA...    SEARCH; the arguments are joined with blanks\n"
    "\n"
    "  -u, --uid             SET and the numbers of SEARCH are UIDs\n"
    "  -c, --charset=NAME    charset of the criteria (none: Shift_JIS)\n"
    "  -w, --write           flags that change (FETCH without PEEK) go into the index\n"
    "  -h, --help            this text\n"
    "\n"
    "Exit status: 0, 1 when the mailbox cannot be opened or the arguments are malformed, 64 for a\n"
    "command line that is.  A mailbox whose index is damaged is given a new one by the attempt to\n"
    "open it: the attempt fails, and the next one should not.\n";

int complain(const char *text, const char *what)
{
    fprintf(stderr, "archive_tool: %s%s\n", text, what);
    return 1;
}

/* -- commands, over an open mailbox; their exit status -- */

int run_open(MailboxHandle *, const Options &, const std::vector<char *> &)
{
    return 0; /* that was it */
}

int run_check(MailboxHandle *handle, const Options &, const std::vector<char *> &)
{
    mlmbx_checknewmail(handle);
    return 0;
}

/* The messages of the set, by their numbers. */
std::vector<int> messages_of(MailboxHandle *handle, const Options &options, char *set)
{
    const IndexRecord *header = &handle->index[0];
    const uint32_t maximum = (options.uid ? header->uid : header->header_size) - 1;
    std::vector<int> messages;
    for (uint32_t n = list_gettoken_msgset(set, maximum); n != 0;
         n = list_gettoken_msgset(nullptr, maximum)) {
        const int sequence = options.uid ? mlmbx_uid2seq(handle, n) : static_cast<int>(n);
        if (sequence > 0) messages.push_back(sequence);
    }
    return messages;
}

int run_fetch(MailboxHandle *handle, const Options &options, const std::vector<char *> &arguments)
{
    std::vector<char *> items(arguments.begin() + 1, arguments.end());
    items.push_back(nullptr);
    const std::vector<int> messages = messages_of(handle, options, arguments[0]);
    if (messages.empty()) return complain("no such message: ", arguments[0]);
    for (const int sequence : messages)
        mlmbx_fetch(handle, sequence, items.data());
    return 0;
}

int run_search(MailboxHandle *handle, const Options &options, const std::vector<char *> &arguments)
{
    std::string criteria;
    for (const char *argument : arguments)
        criteria += (criteria.empty() ? "" : " ") + std::string(argument);
    if (mlmbx_search(handle, criteria.c_str(), options.charset, options.uid) == 1) return 0;
    return complain("malformed criteria: ", criteria.c_str());
}

struct Command {
    const char *name;
    size_t least_arguments, most_arguments;
    int announce; /* mode bits of the open */
    int (*run)(MailboxHandle *, const Options &, const std::vector<char *> &);
};

const Command commands[] = {
    {"open", 0, 0, 0, run_open},
    {"check", 0, 0, MAILBOX_FORCE_CHECK, run_check},
    {"fetch", 2, SIZE_MAX, MAILBOX_QUIET, run_fetch},
    {"search", 1, SIZE_MAX, MAILBOX_QUIET, run_search},
};

/* -- command line -- */

const Command *find_command(const char *name, size_t arguments)
{
    for (const Command &command : commands)
        if (strcmp(name, command.name) == 0 && arguments >= command.least_arguments &&
            arguments <= command.most_arguments)
            return &command;
    return nullptr;
}

/* false: the status says how to end. */
bool read_options(int argc, char **argv, Options *options, int *status)
{
    static const struct option long_options[] = {
        {"uid", no_argument, nullptr, 'u'},
        {"charset", required_argument, nullptr, 'c'},
        {"write", no_argument, nullptr, 'w'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    for (int option; (option = getopt_long(argc, argv, "+uc:wh", long_options, nullptr)) != -1;) {
        if (option == 'u') options->uid = true;
        if (option == 'w') options->write = true;
        if (option == 'c') options->charset = optarg;
        if (option == 'h') {
            fputs(usage_text, stdout);
            *status = 0;
            return false;
        }
        if (option == '?') return false;
    }
    return true;
}

int run(const Command &command, const char *path, const Options &options,
        const std::vector<char *> &arguments)
{
    const int keep = options.write ? 0 : MAILBOX_READ_ONLY | MAILBOX_NO_WRITE_BACK;
    MailboxHandle *handle = list_mbx_open(path, command.announce | keep);
    if (handle == nullptr) return complain("cannot open ", path);
    const int status = command.run(handle, options, arguments);
    list_mbx_close(handle);
    return status;
}
} // namespace

int main(int argc, char **argv)
{
    Options options;
    int status = EX_USAGE;
    if (!read_options(argc, argv, &options, &status)) {
        if (status != 0) fputs("try archive_tool --help\n", stderr);
        return status;
    }
    const std::vector<char *> words(argv + optind, argv + argc);
    const Command *command = words.size() >= 2 ? find_command(words[1], words.size() - 2) : nullptr;
    if (command == nullptr) {
        fputs(usage_text, stderr);
        return EX_USAGE;
    }
    return run(*command, words[0], options, {words.begin() + 2, words.end()});
}
