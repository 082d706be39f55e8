/* What the host's configuration library answers about a list's welcome and help texts. */
#ifndef TESTS_HOST_TEXTS_H
#define TESTS_HOST_TEXTS_H

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

/* Nothing is configured unless a test says so; a new object puts that back. */
struct HostTexts {
    HostTexts();
    ~HostTexts();
    HostTexts(const HostTexts &) = delete;
    HostTexts &operator=(const HostTexts &) = delete;

    std::optional<std::string> welcome;
    std::vector<std::string> help; /* one piece a call */
    int error = 0;                 /* the answer to every look-up, unless 0 */
    int endless_help = 0;          /* "more follows" is said behind the last piece too */
    int welcome_calls = 0, help_calls = 0;
    std::string domain, list; /* of the last call */
};

#endif
