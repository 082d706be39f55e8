/* What a posting has to write and to sync, made bare: the same files in the same order, by nothing
   but system calls.  And what a look-up in a roster has to read. */
#ifndef BENCH_BARE_POSTING_H
#define BENCH_BARE_POSTING_H

#include <stddef.h>

#include <string>

class BarePosting
{
  public:
    /* Below a directory of its own; the index has so many bytes.  Looking somebody up in the roster
       is not part of it. */
    BarePosting(const std::string &directory, size_t index_size);

    void post(bool at_keep); /* at the keep count the oldest message goes */

  private:
    void read_synced(const std::string &name);
    void replace(const std::string &name, const std::string &bytes);
    void read_index();
    std::string path(const std::string &name) const { return directory_ + "/" + name; }

    std::string directory_, journal_, status_, index_, read_;
    unsigned number_ = 0;
};

/* Rewrites a file of so many bytes durably: its next contents, a copy of the former ones, and the
   contents in place, each synced, their directory twice. */
class BareRewrite
{
  public:
    BareRewrite(const std::string &directory, size_t size);
    void rewrite();

  private:
    std::string name_, bytes_;
};

/* Reads the file in large blocks and finds every line feed with memchr().  The lines. */
size_t bare_lines(const std::string &name);

#endif
