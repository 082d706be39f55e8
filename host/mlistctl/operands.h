/* Operands that several verbs take. */
#ifndef HOST_MLISTCTL_OPERANDS_H
#define HOST_MLISTCTL_OPERANDS_H

#include <functional>

#include "host/mlistctl/address.h"
#include "host/mlistctl/verbs.h"

/* The list that the command line names; throws a Failure when there is none. */
ListAddress existing_list(const Arguments &arguments, const Settings &settings);

/* The words of the command line; for "-" the lines of standard input, empty ones left out. */
std::vector<std::string> read_words(const Arguments &arguments);

/* What is wrong with a word, or null. */
using WordFault = std::function<const char *(const std::string &word)>;

/* Throws a Failure that names every word with a fault: nothing is done for the others, so a typing
   error in a long list changes nothing.  what: "a member's address"; undone: "nobody was added". */
void refuse_bad_words(const std::vector<std::string> &words, const WordFault &fault_of,
                      const std::string &what, const std::string &undone);

#endif
