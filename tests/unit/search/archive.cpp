#include "tests/unit/search/archive.h"

#include <gtest/gtest.h>

SearchArchive::SearchArchive()
{
    EXPECT_EQ(1, mlmbx_create(path().c_str()));
}

SearchArchive::~SearchArchive()
{
    list_mbx_close(handle_);
}

std::string SearchArchive::message_file(unsigned uid) const
{
    return path() + "/#msg/" + std::to_string(uid);
}

void SearchArchive::add(const std::string &message, uint32_t flags)
{
    const std::string source = dir_ / "source";
    write_file(source, message);
    const size_t blank = message.find("\r\n\r\n");
    const uint32_t header = blank == std::string::npos ? 0 : static_cast<uint32_t>(blank + 4);
    IndexHandle *batch = list_mbx_append(path().c_str(), NO_INDEX_HANDLE, source.c_str(), flags,
                                         header, static_cast<uint32_t>(message.size()), 1);
    ASSERT_NE(NO_INDEX_HANDLE, batch);
    list_mbx_append(nullptr, batch, nullptr, 0, 0, 0, 0);
}

MailboxHandle *SearchArchive::open()
{
    list_mbx_close(handle_);
    handle_ = list_mbx_open(path().c_str(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
    return handle_;
}

std::string SearchArchive::search(const std::string &text, const char *charset, int uid)
{
    if (handle_ == nullptr) open();
    (void)out_.take();
    const int done = mlmbx_search(handle_, text.c_str(), charset, uid);
    const std::string printed = out_.take();
    if (done == 1) return printed;
    EXPECT_EQ("", printed);
    return "ERROR";
}
