#include "tests/unit/archive_fetch/reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "module/os.h"

std::string crlf(const std::string &text)
{
    std::string out;
    for (const char c : text) {
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

std::string printed(const std::function<void()> &print)
{
    OutCapture out;
    print();
    return out.take();
}

Reader::Reader(const std::vector<std::string> &messages)
{
    Records records = {{7 + static_cast<uint32_t>(messages.size()), Box::validity, 0, 0}};
    for (const std::string &message : messages) {
        const uint32_t uid = 6 + static_cast<uint32_t>(records.size());
        records.push_back({uid, 0, header_size_of(message), static_cast<uint32_t>(message.size())});
        write_file(box_.message(uid), message);
        const struct timespec times[2] = {{1794701638, 0}, {1794701638, 0}};
        EXPECT_EQ(0, utimensat(AT_FDCWD, box_.message(uid).c_str(), times, 0));
    }
    records[0].header_size = static_cast<uint32_t>(records.size());
    box_.put_index(records);
    handle_ = list_mbx_open(box_.path(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
    EXPECT_NE(nullptr, handle_);
}

Reader::~Reader()
{
    list_mbx_close(handle_);
}

std::string Reader::file(int sequence) const
{
    return box_.message(6 + static_cast<uint32_t>(sequence));
}

std::string Reader::fetch(const std::vector<std::string> &items, int sequence)
{
    std::vector<std::string> copies = items;
    std::vector<char *> list;
    for (std::string &item : copies)
        list.push_back(item.data());
    list.push_back(nullptr);
    return printed([&] { mlmbx_fetch(handle_, sequence, list.data()); });
}

/* The text without what has to stand around it. */
static std::string between(const std::string &text, const std::string &before,
                           const std::string &after)
{
    const size_t around = before.size() + after.size();
    if (text.size() < around || text.compare(0, before.size(), before) != 0 ||
        text.compare(text.size() - after.size(), after.size(), after) != 0) {
        ADD_FAILURE() << text << " does not stand between " << before << " and " << after;
        return text;
    }
    return text.substr(before.size(), text.size() - around);
}

std::string Reader::items(const std::vector<std::string> &items, int sequence)
{
    return between(fetch(items, sequence), "* " + std::to_string(sequence) + " FETCH (", ")\r\n");
}

std::string Reader::section(const std::string &section)
{
    return between(items({"BODY.PEEK[" + section}), "BODY[" + section + " ", "");
}

std::string Reader::value(const std::string &item)
{
    return between(items({item}), item + " ", "");
}

MessageText::MessageText(const std::string &text)
    : fd_(memfd_create("message", MFD_CLOEXEC)), size_(static_cast<uint32_t>(text.size())),
      header_(header_size_of(text))
{
    EXPECT_EQ(0, write_all(fd_, text.data(), text.size()));
}

MessageText::~MessageText()
{
    close(fd_);
}

PartNode *MessageText::parse() const
{
    return list_getmime(fd_, 0, header_, size_ - header_);
}
