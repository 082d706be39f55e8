/* A mailbox in a temporary directory, and short words for what the archive tests do with it. */
#ifndef TESTS_ARCHIVE_BOX_H
#define TESTS_ARCHIVE_BOX_H

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "mlist/archive.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"
#include "tests/support/without_sync.h"

using Records = std::vector<IndexRecord>; /* record 0 the header */

std::string bytes_of(const Records &records);
std::string hex(const std::string &bytes);

/* What of the message text counts as header: up to and including the first empty line. */
uint32_t header_size_of(const std::string &message);

/* A message of a fixed, small text that differs by number. */
std::string sample_message(uint32_t number);

class Box
{
  public:
    /* Makes the mailbox, with a fixed UIDVALIDITY, unless made is false. */
    explicit Box(bool made = true);

    const char *path() const { return path_.c_str(); }
    std::string name(const std::string &below) const { return path_ + "/" + below; }
    std::string message(uint32_t uid) const;     /* path of a message file */
    std::string source(const std::string &text); /* a file outside of the mailbox */

    /* One batch of one message; asserts that it went well. */
    void append(const std::string &text, uint32_t flags = 0);
    void append_samples(int count); /* the same outcome, written past the module */
    void append_from(const std::string &source, const std::string &text, uint32_t flags, int move);

    Records index() const;                  /* as it lies on the disk */
    void put_index(const Records &records); /* past all transactions */
    std::vector<uint32_t> uids() const;
    uint32_t flags(uint32_t uid) const;
    void set_flags(uint32_t uid, uint32_t flags); /* past all transactions */

    void age(int seconds); /* moves the index's time into the past, or by a negative number ahead */
    int64_t mtime() const;

    static constexpr uint32_t validity = 1794701640;

  private:
    TempDir dir_;
    std::string path_;
    int sources_ = 0;
};

/* What list_mbx_open() prints. */
std::string open_lines(int messages, int recent, uint32_t validity, uint32_t next, int unseen,
                       bool read_only = false);

#endif
