/* The index: opened, checked, searched, expunged. */
#include <errno.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>
#include <unistd.h>

#include "tests/linear/linear.h"
#include "tests/support/without_sync.h"
#include "tests/unit/archive/box.h"

/* An index of so many bytes, a message each 16. */
static std::string index_of(size_t size, uint32_t flags, uint32_t step)
{
    const uint32_t count = static_cast<uint32_t>(size / sizeof(IndexRecord));
    Records records;
    records.reserve(count);
    records.push_back({count * step + 1, Box::validity, count, 0});
    for (uint32_t s = 1; s < count; ++s)
        records.push_back({s * step, flags, 10, 20});
    return bytes_of(records);
}

TEST(LinearArchive, Index)
{
    const WithoutSync no_sync;
    const Discard discard;
    Box box;
    demand_linear(
        {{"messages", [](size_t size) { return index_of(size, 0, 1); }},
         {"new messages", [](size_t size) { return index_of(size, MESSAGE_RECENT, 1); }},
         {"gaps", [](size_t size) { return index_of(size, 0, 3); }},
         {"deleted messages", [](size_t size) { return index_of(size, MESSAGE_DELETED, 1); }},
         {"zeros", [](size_t size) { return std::string(size, '\0'); }, "no index"},
         {"ones", [](size_t size) { return std::string(size, '\xff'); }, "no index"}},
        [&](std::string &text) {
            write_file(box.name("#mix"), text);
            MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_NO_WRITE_BACK);
            mlmbx_checknewmail(handle);
            for (uint32_t uid = 1; handle != nullptr && uid < text.size() / 64; ++uid)
                (void)mlmbx_uid2seq(handle, uid); /* by halves: n log n, and its log is small */
            list_mbx_close(handle);
        });
}

/* Two of three messages are gone, and as many new ones are there, when the mailbox looks again:
   once where numbers may change, once where they may not. */
TEST(LinearArchive, IndexChangedByOthers)
{
    const WithoutSync no_sync;
    const Discard discard;
    Box box;
    for (const auto check : {mlmbx_checknewmail, mlmbx_checknewmail2})
        demand_linear(
            {{"messages", [](size_t size) { return index_of(size, 0, 1); }},
             {"new messages", [](size_t size) { return index_of(size, MESSAGE_RECENT, 1); }},
             {"deleted messages", [](size_t size) { return index_of(size, MESSAGE_DELETED, 1); }}},
            [&](std::string &text) {
                write_file(box.name("#mix"), text);
                MailboxHandle *handle = list_mbx_open(box.path(), 0);
                ASSERT_NE(nullptr, handle);
                write_file(box.name("#mix"), index_of(text.size(), MESSAGE_SEEN, 3));
                handle->mode |= MAILBOX_FORCE_CHECK;
                check(handle);
                list_mbx_close(handle);
            });
}

/* Millions of messages that have no files: the kernel would take its time to say so. */
class WithoutFiles
{
  public:
    WithoutFiles() : former_(os), calls_(*os)
    {
        calls_.unlink = [](const char *path) {
            if (strstr(path, "/#msg/") == nullptr) return unlink(path);
            errno = ENOENT;
            return -1;
        };
        os = &calls_;
    }
    ~WithoutFiles() { os = former_; }

  private:
    const OsCalls *former_;
    OsCalls calls_;
};

/* Every message is printed and unlinked. */
TEST(LinearArchive, Expunge)
{
    const WithoutSync no_sync;
    const WithoutFiles no_files;
    const Discard discard;
    Box box;
    demand_linear(
        {{"deleted messages", [](size_t size) { return index_of(size, MESSAGE_DELETED, 1); }},
         {"every other message is deleted",
          [](size_t size) {
              std::string index = index_of(size, MESSAGE_DELETED, 1);
              for (size_t at = 2 * sizeof(IndexRecord); at < index.size();
                   at += 2 * sizeof(IndexRecord))
                  index[at + offsetof(IndexRecord, flags)] = 0;
              return index;
          }}},
        [&](std::string &text) {
            write_file(box.name("#mix"), text);
            MailboxHandle *handle = list_mbx_open(box.path(), 0);
            mlmbx_expunge(handle, 0);
            list_mbx_close(handle);
        });
}

/* A message that an index is made from. */
TEST(LinearArchive, Rebuild)
{
    const TempDir messages;
    demand_linear({{"line feeds", repeated("\n")},
                   {"line ends", repeated("x\r\n")},
                   {"carriage returns", repeated("\r")},
                   {"one line", repeated("x")}},
                  [&](std::string &text) {
                      write_file(messages / "1", text);
                      IndexRecord record;
                      EXPECT_EQ(0, list_mbx_mkidx(messages.path().c_str(), "1", &record));
                  });
}
