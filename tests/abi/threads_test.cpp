/* Many threads in the built library at once: deliveries to one list and to several, beside readers
   of the archives. */
#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>

#include "tests/abi/host.h"

static const char settings[] = "subjectf=[%M:%S]\r\njournal=1000\r\nmaxsummary=500\r\n";

static std::string posting(int worker, int count)
{
    return "From: alice@example.net\r\nSubject: Hello\r\nMessage-ID: <" + std::to_string(worker) +
           "." + std::to_string(count) + "@example.net>\r\n\r\nHi all.\r\n";
}

static uint32_t number_of(const std::string &mail)
{
    size_t at = mail.find("X-Mail-Count: ");
    return at == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(mail.substr(at + 14)));
}

/* Opens and closes the archive until told to stop; its messages only ever grow in number. */
static void keep_reading(const Host &host, const std::string &archive,
                         const std::atomic<bool> &stop)
{
    host.symbol<decltype(mlist_set_output)>("mlist_set_output")(fopen("/dev/null", "we"));
    uint32_t seen = 0;
    while (!stop) {
        MailboxHandle *box = host.symbol<decltype(list_mbx_open)>("list_mbx_open")(
            archive.c_str(), MAILBOX_NO_WRITE_BACK | MAILBOX_QUIET | MAILBOX_READ_ONLY);
        ASSERT_NE(box, nullptr);
        uint32_t count = box->index[0].header_size - 1; /* word 2 of record 0 */
        EXPECT_GE(count, seen);
        seen = count;
        if (count > 0) {
            EXPECT_EQ(host.symbol<decltype(mlmbx_uid2seq)>("mlmbx_uid2seq")(box, count),
                      static_cast<int>(count));
        }
        host.symbol<decltype(list_mbx_close)>("list_mbx_close")(box);
    }
}

/* Posts and gives the numbers that the submissions carried. */
static std::vector<uint32_t> post_some(const Host &host, const std::string &list, int worker,
                                       int postings)
{
    host.symbol<decltype(mlist_set_output)>("mlist_set_output")(fopen("/dev/null", "we"));
    std::vector<uint32_t> numbers;
    for (int count = 0; count < postings; count++) {
        Delivered delivered = host.deliver(posting(worker, count), {list});
        EXPECT_EQ(delivered.exit_code, MLIST_EXIT_ACCEPTED) << delivered.reply;
        if (delivered.submitted.size() != 1) continue;
        EXPECT_EQ(delivered.submitted[0].recipient_file, "alice@example.net\r\nbob@example.jp\r\n");
        numbers.push_back(number_of(delivered.submitted[0].content));
    }
    return numbers;
}

/* What the archive holds: message N is posting N, for every N. */
static void check_archive(const Host &host, const std::string &list, size_t postings)
{
    for (size_t uid = 1; uid <= postings; uid++)
        EXPECT_EQ(number_of(file_content(host.box("#msg/" + std::to_string(uid), list))), uid);
    EXPECT_EQ(file_content(host.box("#mix", list)).size(), (postings + 1) * sizeof(IndexRecord));
    EXPECT_EQ(file_content(host.control("dgtstat", list)), "1-" + std::to_string(postings));
}

TEST(BuiltLibraryThreads, GiveEveryPostingOfOneListItsOwnNumber)
{
    constexpr int workers = 6, postings = 8;
    Host host;
    host.make_list(settings);

    std::atomic<bool> stop{false};
    std::string archive = host.box("");
    archive.pop_back();
    std::thread reader([&] { keep_reading(host, archive, stop); });
    std::vector<std::vector<uint32_t>> numbers(workers);
    std::vector<std::thread> threads;
    for (int worker = 0; worker < workers; worker++)
        threads.emplace_back(
            [&, worker] { numbers[worker] = post_some(host, "mylist", worker, postings); });
    for (std::thread &thread : threads)
        thread.join();
    stop = true;
    reader.join();

    std::set<uint32_t> all;
    for (const auto &some : numbers)
        all.insert(some.begin(), some.end());
    EXPECT_EQ(all.size(), size_t{workers * postings});
    EXPECT_EQ(*all.begin(), 1u);
    EXPECT_EQ(*all.rbegin(), uint32_t{workers * postings});
    check_archive(host, "mylist", workers * postings);
}

TEST(BuiltLibraryThreads, ServeSeveralListsAtOnce)
{
    constexpr int lists = 4, postings = 8;
    Host host;
    for (int list = 0; list < lists; list++)
        host.make_list(settings, "list" + std::to_string(list));
    std::vector<std::thread> threads;
    for (int list = 0; list < lists; list++)
        threads.emplace_back([&, list] {
            EXPECT_EQ(post_some(host, "list" + std::to_string(list), list, postings).back(),
                      uint32_t{postings});
        });
    for (std::thread &thread : threads)
        thread.join();
    for (int list = 0; list < lists; list++)
        check_archive(host, "list" + std::to_string(list), postings);
}
