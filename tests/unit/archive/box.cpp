#include "tests/unit/archive/box.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

std::string bytes_of(const Records &records)
{
    return std::string(reinterpret_cast<const char *>(records.data()),
                       records.size() * sizeof(IndexRecord));
}

std::string hex(const std::string &bytes)
{
    std::string text;
    char digits[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned char>(bytes[i]));
        text += digits;
        if (i % 16 == 15) text += '\n';
    }
    return text;
}

uint32_t header_size_of(const std::string &message)
{
    if (message.compare(0, 2, "\r\n") == 0) return 2;
    const size_t blank = message.find("\r\n\r\n");
    return blank == std::string::npos ? 0 : static_cast<uint32_t>(blank + 4);
}

std::string sample_message(uint32_t number)
{
    const std::string n = std::to_string(number);
    return "Subject: number " + n + "\r\nFrom: a@example.jp\r\n\r\nBody of " + n + ".\r\n" +
           std::string(number % 7, 'x') + "\r\n";
}

Box::Box(bool made)
{
    path_ = dir_ / "INBOX";
    if (!made) return;
    EXPECT_EQ(1, mlmbx_create(path()));
    put_index({{1, validity, 1, 0}});
}

std::string Box::message(uint32_t uid) const
{
    return name("#msg/" + std::to_string(uid));
}

std::string Box::source(const std::string &text)
{
    const std::string path = dir_ / ("source" + std::to_string(++sources_));
    write_file(path, text);
    return path;
}

void Box::append_from(const std::string &from, const std::string &text, uint32_t flags, int move)
{
    IndexHandle *batch = mbxappend(path(), NO_INDEX_HANDLE, from.c_str(), flags,
                                   header_size_of(text), static_cast<uint32_t>(text.size()), move);
    ASSERT_NE(NO_INDEX_HANDLE, batch);
    ASSERT_EQ(NO_INDEX_HANDLE, mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0));
    ASSERT_EQ(0, errno);
}

void Box::append(const std::string &text, uint32_t flags)
{
    append_from(source(text), text, flags, 0);
}

void Box::append_samples(int count)
{
    Records records = index();
    for (int i = 0; i < count; ++i) {
        const uint32_t uid = records[0].uid++;
        const std::string text = sample_message(uid);
        write_file(message(uid), text);
        records.push_back(
            {uid, MESSAGE_RECENT, header_size_of(text), static_cast<uint32_t>(text.size())});
    }
    records[0].header_size = static_cast<uint32_t>(records.size());
    put_index(records);
}

Records Box::index() const
{
    const std::string bytes = read_file(name("#mix"));
    Records records(bytes.size() / sizeof(IndexRecord));
    if (records.empty()) return records;
    memcpy(static_cast<void *>(records.data()), bytes.data(), records.size() * sizeof(IndexRecord));
    return records;
}

void Box::put_index(const Records &records)
{
    write_file(name("#mix"), bytes_of(records));
}

std::vector<uint32_t> Box::uids() const
{
    std::vector<uint32_t> uids;
    const Records records = index();
    for (size_t i = 1; i < records.size(); ++i)
        uids.push_back(records[i].uid);
    return uids;
}

uint32_t Box::flags(uint32_t uid) const
{
    const Records records = index();
    for (size_t i = 1; i < records.size(); ++i)
        if (records[i].uid == uid) return records[i].flags;
    ADD_FAILURE() << "no message " << uid;
    return 0;
}

void Box::set_flags(uint32_t uid, uint32_t flags)
{
    Records records = index();
    for (size_t i = 1; i < records.size(); ++i)
        if (records[i].uid == uid) records[i].flags = flags;
    put_index(records);
}

void Box::age(int seconds)
{
    struct stat status;
    ASSERT_EQ(0, stat(name("#mix").c_str(), &status));
    const struct timespec times[2] = {{status.st_atim.tv_sec, 0},
                                      {status.st_mtim.tv_sec - seconds, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, name("#mix").c_str(), times, 0));
}

int64_t Box::mtime() const
{
    struct stat status;
    return stat(name("#mix").c_str(), &status) == 0 ? status.st_mtime : -1;
}

std::string open_lines(int messages, int recent, uint32_t validity, uint32_t next, int unseen,
                       bool read_only)
{
    const char *const names = "\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent";
    std::string text = std::string("* FLAGS (") + names + ")\r\n";
    text += "* " + std::to_string(messages) + " EXISTS\r\n";
    text += "* " + std::to_string(recent) + " RECENT\r\n";
    text += "* OK [UIDVALIDITY " + std::to_string(validity) + "] UIDs valid\r\n";
    text += "* OK [UIDNEXT " + std::to_string(next) + "] Predicted next UID\r\n";
    if (unseen != 0)
        text += "* OK [UNSEEN " + std::to_string(unseen) + "] message " + std::to_string(unseen) +
                " is first unseen\r\n";
    text += std::string("* OK [PERMANENTFLAGS (") + (read_only ? "" : names) + ")] limited\r\n";
    return text;
}
