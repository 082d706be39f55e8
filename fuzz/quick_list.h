/* A list for a fuzzer, and how one input is cut into an argument and the contents of a file. */
#ifndef FUZZ_QUICK_LIST_H
#define FUZZ_QUICK_LIST_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "tests/support/temp_list.h"

/* Nothing is synced, what is printed is gone, it is always the same time, and temporary directories
   are in memory. */
struct QuickSurroundings {
    QuickSurroundings();
};

class QuickList : QuickSurroundings
{
  public:
    TempList list;
    DeliveryJob *job() { return list.job(); }
};

#define QUICK_LIST_NOW 1794700000 /* in 2026 */

/* The first line of an input, without its line end and what follows a zero byte; the rest. */
struct ArgumentAndFile {
    std::string argument, contents;
};
ArgumentAndFile argument_and_file(const uint8_t *data, size_t size);

/* The pieces in which the file layer hands out a text: lines, ended CR LF, cut at 4,095 bytes; and
   as a rewrite keeps them, where a CR LF that two reads brought in is one again. */
std::vector<std::string> pieces_of(const std::string &contents);
std::vector<std::string> kept_pieces_of(const std::string &contents);

/* A piece of the roster: who, and status 1 to 3, 0 for any other word. */
struct Member {
    bool is_one = false; /* there is a blank behind the address */
    std::string address;
    int status = 0;
};
Member member_of(const std::string &piece);

/* Whether the texts are equal but for ASCII case. */
bool same_nocase(const std::string &left, const std::string &right);

#endif
