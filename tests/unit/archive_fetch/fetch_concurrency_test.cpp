/* Many threads, each with a handle of its own, on one mailbox. */
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/reference/imap_read.h"
#include "tests/unit/archive_fetch/reader.h"

static std::string message_of(int number)
{
    const std::string n = std::to_string(number);
    std::string addresses = "To: ";
    for (int i = 0; i < 20; ++i)
        addresses += "\"Name " + n + "\" <u" + n + "@example.jp>,\n\t";
    return crlf("Subject: message " + n + "\nFrom: f" + n + "@example.jp\n" + addresses + "last" +
                n + "@example.jp\nContent-Type: multipart/mixed; boundary=b" + n + "_\n\n--b" + n +
                "_\nContent-Type: text/plain; n*0=" + n + "; n*1=x\n\ntext " + n + "\n--b" + n +
                "_\nContent-Type: message/rfc822\n\nSubject: in " + n + "\n\n" + n + "\n--b" + n +
                "_--\n");
}

static const std::vector<std::string> items = {"FLAGS",
                                               "ENVELOPE",
                                               "BODY",
                                               "BODYSTRUCTURE",
                                               "RFC822.SIZE",
                                               "BODY.PEEK[HEADER.FIELDS (SUBJECT)]",
                                               "BODY.PEEK[2.HEADER]",
                                               "BODY.PEEK[]<3.40>",
                                               "BODY.PEEK[1]<0.4>",
                                               "UID",
                                               "INTERNALDATE"};

static std::string fetch(MailboxHandle *handle, int sequence)
{
    std::vector<std::string> copies = items;
    std::vector<char *> list;
    for (std::string &item : copies)
        list.push_back(item.data());
    list.push_back(nullptr);
    return printed([&] { mlmbx_fetch(handle, sequence, list.data()); });
}

TEST(FetchThreads, ReadTheSameWhateverOthersRead)
{
    constexpr int messages = 8, threads = 6, rounds = 40;
    std::vector<std::string> texts;
    for (int i = 0; i < messages; ++i)
        texts.push_back(message_of(i));
    Reader reader(texts);
    std::vector<std::string> expected;
    for (int s = 1; s <= messages; ++s) {
        expected.push_back(fetch(reader.handle(), s));
        ASSERT_TRUE(imap::read_response(expected.back())) << expected.back();
    }
    std::atomic<int> differences = 0;
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            MailboxHandle *handle =
                list_mbx_open(reader.box().path(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
            for (int round = 0; round < rounds; ++round) {
                const int s = (round * (t + 1) + t) % messages + 1;
                if (fetch(handle, s) != expected[static_cast<size_t>(s - 1)]) ++differences;
            }
            list_mbx_close(handle);
        });
    for (std::thread &thread : pool)
        thread.join();
    EXPECT_EQ(0, differences);
}
