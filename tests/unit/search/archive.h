/* An archive to search in, and its open handle. */
#ifndef TESTS_SEARCH_ARCHIVE_H
#define TESTS_SEARCH_ARCHIVE_H

#include <string>

#include "mlist/archive.h"
#include "mlist/search.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"

class SearchArchive
{
  public:
    SearchArchive();
    ~SearchArchive();
    SearchArchive(const SearchArchive &) = delete;
    SearchArchive &operator=(const SearchArchive &) = delete;

    /* Appends a message with CR LF line ends; header size found as the store does it. */
    void add(const std::string &message, uint32_t flags = 0);

    /* Opens the mailbox anew, with what was added. */
    MailboxHandle *open();

    /* What mlmbx_search() printed; "ERROR" when it answered 0. */
    std::string search(const std::string &text, const char *charset = nullptr, int uid = 0);

    std::string path() const { return dir_ / "INBOX"; }
    std::string message_file(unsigned uid) const;

  private:
    TempDir dir_;
    OutCapture out_;
    MailboxHandle *handle_ = nullptr;
};

#endif
