/* A mailbox with messages of the test's own, open, and what FETCH prints of them. */
#ifndef TESTS_ARCHIVE_FETCH_READER_H
#define TESTS_ARCHIVE_FETCH_READER_H

#include <functional>
#include <string>
#include <vector>

#include "mlist/mlist.h"
#include "tests/support/fake_host.h"
#include "tests/unit/archive/box.h"

/* Every "\n" as "\r\n". */
std::string crlf(const std::string &text);

/* The calling thread's memory from a host that counts it and fails when told to. */
struct HostMemory : FakeHost {
    HostMemory() { tcbcreate(&request); }
    ~HostMemory() { tcbfree(); }
};

/* What the function prints to the thread's sink. */
std::string printed(const std::function<void()> &print);

class Reader
{
  public:
    /* Messages get UIDs from 7 on, and the sizes that they have; all of one fixed time. */
    explicit Reader(const std::vector<std::string> &messages);
    explicit Reader(const std::string &message) : Reader(std::vector<std::string>{message}) {}
    ~Reader();

    MailboxHandle *handle() { return handle_; }
    Box &box() { return box_; }
    IndexRecord &record(int sequence) { return handle_->index[sequence]; }
    std::string file(int sequence = 1) const;

    /* The whole response. */
    std::string fetch(const std::vector<std::string> &items, int sequence = 1);
    /* Only what stands between the parentheses. */
    std::string items(const std::vector<std::string> &items, int sequence = 1);
    /* The value of one section, fetched without setting \Seen. */
    std::string section(const std::string &section);
    /* The value of the item BODY, or BODYSTRUCTURE. */
    std::string body() { return value("BODY"); }
    std::string bodystructure() { return value("BODYSTRUCTURE"); }
    std::string envelope() { return value("ENVELOPE"); }

  private:
    std::string value(const std::string &item);
    WithoutSync quick_;
    Box box_;
    MailboxHandle *handle_ = nullptr;
};

/* A message file alone, for the functions that take a descriptor. */
class MessageText
{
  public:
    explicit MessageText(const std::string &text);
    ~MessageText();
    MessageText(const MessageText &) = delete;
    MessageText &operator=(const MessageText &) = delete;
    int fd() const { return fd_; }
    uint32_t size() const { return size_; }

    /* The tree of all of it; its header ends with the first empty line. */
    PartNode *parse() const;

  private:
    int fd_;
    uint32_t size_, header_;
};

#endif
