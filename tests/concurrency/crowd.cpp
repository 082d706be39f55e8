#include "tests/concurrency/crowd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>

#include "tests/concurrency/notes.h"
#include "tests/concurrency/watchdog.h"

namespace fs = std::filesystem;

#define STILL_SECONDS 120

/* -- set-up -- */

static const char settings[] = "cmd=on on on on on on on on on on\r\nsubject=edit\r\n"
                               "subjectf=[%M:%0S]\r\nvstrml=grant\r\nvstrc=part\r\n"
                               "defstatus=1\r\nconfirm=0\r\nmaxsummary=500\r\njournal=";

Crowd::Crowd(const ModuleCalls &calls, std::vector<int> keeps) : calls_(calls)
{
    std::string name = (fs::temp_directory_path() / "mlist-crowd-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) abort();
    const int lists = static_cast<int>(keeps.size());
    ground_ = {name, lists, std::move(keeps), {"alice@example.net", "bob@example.jp"}};
    snprintf(calls_.control_root, 1024, "%s/control", name.c_str());
    snprintf(calls_.archive_root, 1024, "%s/box", name.c_str());
    fs::create_directory(name + "/notes");
    for (int list = 0; list < ground_.lists; ++list)
        make_list(list);
}

Crowd::~Crowd()
{
    if (testing::Test::HasFailure())
        fprintf(stderr, "what it left is in %s\n", ground_.root.c_str());
    else
        fs::remove_all(ground_.root);
}

void Crowd::make_list(int list)
{
    fs::create_directories(ground_.control(list, "msg"));
    fs::create_directories(ground_.control(list, "jnl"));
    fs::create_directories(fs::path(ground_.box(list, "")).parent_path());
    for (const char *name : {"grant", "subscribe", "confirm", "dgtstat", "status", "digest"})
        write_note(ground_.control(list, name), "");
    std::string roster, active;
    for (const std::string &resident : ground_.residents) {
        roster += resident + " ON \r\n";
        active += resident + "\r\n";
    }
    write_note(ground_.control(list, "member"), roster);
    write_note(ground_.control(list, "active"), active);
    write_note(ground_.control(list, "init"),
               settings + std::to_string(ground_.keeps[static_cast<size_t>(list)]) + "\r\n");
    ASSERT_EQ(1, calls_.create_archive(ground_.box(list, "").c_str()));
}

void Crowd::add_threads(int count, Duty duty)
{
    threads_.insert(threads_.end(), static_cast<size_t>(count), duty);
}

void Crowd::add_processes(int count, Duty duty)
{
    processes_.insert(processes_.end(), static_cast<size_t>(count), duty);
}

/* -- work -- */

/* Forked while this process has no other thread. */
std::vector<pid_t> Crowd::start_processes(Board *board)
{
    std::vector<pid_t> children;
    for (size_t i = 0; i < processes_.size(); ++i) {
        const pid_t child = fork();
        if (child == 0) {
            Worker(ground_, calls_, board, static_cast<int>(threads_.size() + i), processes_[i])
                .work();
            _exit(0);
        }
        children.push_back(child);
    }
    return children;
}

void Crowd::run_and_expect_order()
{
    Board board(static_cast<int>(threads_.size() + processes_.size()));
    const std::vector<pid_t> children = start_processes(&board);
    {
        Watchdog watchdog(&board, children, STILL_SECONDS, ground_.root);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < threads_.size(); ++i)
            threads.emplace_back([&, i] {
                Worker(ground_, calls_, &board, static_cast<int>(i), threads_[i]).work();
            });
        for (std::thread &thread : threads)
            thread.join();
        for (const pid_t child : children) {
            int status = -1;
            EXPECT_EQ(child, waitpid(child, &status, 0));
            EXPECT_EQ(0, status) << "how process " << child << " ended";
        }
    }
    expect_no_complaints();
    for (int list = 0; list < ground_.lists; ++list) {
        SCOPED_TRACE(Ground::list_name(list));
        remove_the_deleted(list);
        expect_archive(list);
        expect_rosters(list);
        expect_nothing_left(list);
    }
}

/* -- afterwards -- */

/* The workers' notes that begin so, without that. */
std::vector<std::string> Crowd::notes_of_all(const std::string &prefix) const
{
    std::vector<std::string> found;
    for (size_t i = 0; i < threads_.size() + processes_.size(); ++i) {
        const std::string path = ground_.notes("worker." + std::to_string(i));
        EXPECT_TRUE(fs::exists(path)) << path;
        for (const std::string &line : split_lines(read_note(path), "\n"))
            if (line.starts_with(prefix)) found.push_back(line.substr(prefix.size()));
    }
    return found;
}

void Crowd::expect_no_complaints()
{
    EXPECT_EQ(std::vector<std::string>{}, notes_of_all("complaint "));
}

/* A message that somebody flagged while another had expunged already goes now. */
void Crowd::remove_the_deleted(int list)
{
    MailboxHandle *box = calls_.open_archive(ground_.box(list, "").c_str(), MAILBOX_QUIET);
    ASSERT_NE(nullptr, box);
    calls_.expunge(box, 0);
    calls_.close_archive(box);
}

/* Mails that were submitted under a number of the list's. */
uint32_t Crowd::count_postings(int list) const
{
    const std::string prefix = Ground::list_name(list) + ".";
    uint32_t count = 0;
    for (const auto &entry : fs::directory_iterator(ground_.notes("")))
        count += entry.path().filename().string().starts_with(prefix);
    return count;
}

static std::vector<std::string> names_in(const std::string &directory)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/* The numbers that the archive must have now. */
std::vector<uint32_t> Crowd::kept_of(int list, uint32_t postings) const
{
    std::set<uint32_t> deleted;
    for (const std::string &uid : notes_of_all("deleted " + std::to_string(list) + " "))
        deleted.insert(static_cast<uint32_t>(std::stoul(uid)));
    const uint32_t keep = static_cast<uint32_t>(ground_.keeps[static_cast<size_t>(list)]);
    std::vector<uint32_t> kept;
    for (uint32_t number = postings > keep ? postings - keep + 1 : 1; number <= postings; ++number)
        if (deleted.count(number) == 0) kept.push_back(number);
    return kept;
}

void Crowd::expect_index(int list, uint32_t postings, const std::vector<uint32_t> &kept)
{
    const std::string bytes = read_note(ground_.box(list, "#mix"));
    std::vector<IndexRecord> index(bytes.size() / sizeof(IndexRecord));
    memcpy(index.data(), bytes.data(), index.size() * sizeof(IndexRecord));
    ASSERT_EQ(kept.size() + 1, index.size());
    EXPECT_EQ(postings + 1, index[0].uid) << "the next number";
    for (size_t i = 1; i < index.size(); ++i) {
        const std::string number = std::to_string(kept[i - 1]);
        const std::string mail = read_note(ground_.notes(Ground::list_name(list) + "." + number));
        EXPECT_EQ(kept[i - 1], index[i].uid);
        EXPECT_EQ(mail.size(), index[i].size);
        EXPECT_EQ(mail.find("\r\n\r\n") + 4, index[i].header_size);
        EXPECT_EQ(mail, read_note(ground_.box(list, "#msg/" + number)));
    }
}

void Crowd::expect_archive(int list)
{
    const uint32_t postings = count_postings(list);
    std::set<std::string> ids, names;
    for (uint32_t number = 1; number <= postings; ++number) {
        const std::string mail =
            read_note(ground_.notes(Ground::list_name(list) + "." + std::to_string(number)));
        EXPECT_FALSE(mail.empty()) << "nobody was given number " << number;
        const size_t id = mail.find("Message-ID: ");
        EXPECT_TRUE(ids.insert(mail.substr(id, mail.find('\r', id) - id)).second) << "sent twice";
    }
    const std::vector<uint32_t> kept = kept_of(list, postings);
    for (const uint32_t number : kept)
        names.insert(std::to_string(number));
    const std::vector<std::string> files = names_in(ground_.box(list, "#msg"));
    EXPECT_EQ(names, std::set<std::string>(files.begin(), files.end()));
    expect_index(list, postings, kept);
    const std::string all = postings == 0   ? ""
                            : postings == 1 ? "1"
                                            : "1-" + std::to_string(postings);
    EXPECT_EQ(all, read_note(ground_.control(list, "dgtstat")));
}

void Crowd::expect_rosters(int list)
{
    std::multiset<std::string> expected;
    for (const std::string &resident : ground_.residents)
        expected.insert(resident + " ON ");
    for (const std::string &line : notes_of_all("member " + std::to_string(list) + " "))
        expected.insert(line);
    const auto roster = split_lines(read_note(ground_.control(list, "member")), "\r\n");
    EXPECT_EQ(expected, std::multiset<std::string>(roster.begin(), roster.end()));

    std::string active, digest;
    for (const std::string &line : roster) {
        const std::string address = line.substr(0, line.find(' ')) + "\r\n";
        if (line.ends_with(" ON ")) active += address;
        if (line.ends_with(" DGT")) digest += address;
    }
    EXPECT_EQ(active, read_note(ground_.control(list, "active")));
    EXPECT_EQ(digest, read_note(ground_.control(list, "digest")));
}

void Crowd::expect_nothing_left(int list)
{
    EXPECT_EQ(std::vector<std::string>{}, names_in(ground_.control(list, "jnl")));
    EXPECT_EQ(std::vector<std::string>{}, names_in(ground_.control(list, "msg")));
    EXPECT_EQ((std::vector<std::string>{"#mix", "#msg"}), names_in(ground_.box(list, "")));
    for (const std::string &name : names_in(ground_.control(list, "")))
        EXPECT_TRUE(!name.ends_with(".new") && !name.ends_with(".old")) << name;
    for (const std::string &path : {ground_.control(list, "lock"), ground_.box(list, "#mix")}) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(0, flock(fd, LOCK_EX | LOCK_NB)) << path << " is locked";
        close(fd);
    }
}
