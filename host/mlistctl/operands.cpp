#include "host/mlistctl/operands.h"

#include <iostream>

#include "host/base/text.h"
#include "host/mlistctl/paths.h"

ListAddress existing_list(const Arguments &arguments, const Settings &settings)
{
    ListAddress address = read_list_address(arguments.list, settings.control_suffixes);
    require_list(address);
    return address;
}

static void append_standard_input(std::vector<std::string> &words)
{
    std::string line;
    while (std::getline(std::cin, line))
        if (std::string_view text = trim(line); !text.empty()) words.emplace_back(text);
    if (std::cin.bad()) throw Failure{CTL_IO, "cannot read standard input", ""};
}

std::vector<std::string> read_words(const Arguments &arguments)
{
    std::vector<std::string> words;
    for (const std::string &word : arguments.words) {
        if (word == "-")
            append_standard_input(words);
        else
            words.push_back(word);
    }
    return words;
}

void refuse_bad_words(const std::vector<std::string> &words, const WordFault &fault_of,
                      const std::string &what, const std::string &undone)
{
    std::string problem;
    for (const std::string &word : words)
        if (const char *fault = fault_of(word)) problem += "\n  '" + one_line(word) + "': " + fault;
    if (!problem.empty())
        throw Failure{CTL_BAD_DATA, "not " + what + ":" + problem,
                      undone + "; correct these and run it again"};
}
