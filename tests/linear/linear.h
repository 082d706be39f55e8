/* Inputs that grow, and the demand that work grows no faster. */
#ifndef TESTS_LINEAR_LINEAR_H
#define TESTS_LINEAR_LINEAR_H

#include <stddef.h>
#include <stdio.h>

#include <functional>
#include <string>
#include <vector>

static constexpr size_t KIB = 1024, MIB = 1024 * KIB;

/* About size bytes. */
using Make = std::function<std::string(size_t size)>;

/* The piece over and over, behind a beginning and before an end. */
Make repeated(const std::string &piece);
Make repeated(const std::string &begin, const std::string &piece, const std::string &end);

struct Worst {
    const char *label;
    Make make;
    /* Says where the parser gives up, or how long its area is; empty: it takes all of the input. */
    const char *bound = "";
};

using Run = std::function<void(std::string &text)>;

/* Runs it on 1 KiB, 64 KiB and 1 MiB of each input, and on 64 MiB of the one that took most steps
   a byte, or on as much as is usual (on 64 MiB of each when LINEAR_ALL is set).  From one size to
   the next, steps for each byte may grow by a fifth; by a half up to 64 KiB, where the areas of
   4,096 bytes are full for the first time.  What takes all of the input must show a step for every
   eight bytes, or nothing was counted.  LINEAR_SHOW prints what was counted. */
void demand_linear(const std::vector<Worst> &inputs, const Run &run, size_t usual = 64 * MIB);

/* A descriptor of a file in memory that holds the text, while it lives. */
class MemoryFile
{
  public:
    explicit MemoryFile(const std::string &text);
    ~MemoryFile();
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    int fd() const { return fd_; }

  private:
    int fd_;
};

/* While it lives, the thread prints to nowhere. */
class Discard
{
  public:
    Discard();
    ~Discard();
    Discard(const Discard &) = delete;
    Discard &operator=(const Discard &) = delete;

  private:
    FILE *stream_;
};

#endif
