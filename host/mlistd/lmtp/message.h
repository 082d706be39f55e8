/* Receiving the data of one mail into a file, in bounded memory. */
#ifndef HOST_MLISTD_LMTP_MESSAGE_H
#define HOST_MLISTD_LMTP_MESSAGE_H

#include <cstdint>
#include <string>

#include "host/base/fd.h"
#include "host/base/result.h"
#include "host/mlistd/lmtp/data_decoder.h"
#include "host/mlistd/lmtp/header_filter.h"
#include "host/mlistd/lmtp/reply.h"

/* A file that is being written; removed by the destructor.  A failed write (a full disk) is
   remembered and all further text ignored. */
class MessageFile
{
  public:
    static Result<MessageFile> create(const std::string &path);
    MessageFile(MessageFile &&) = default;
    MessageFile &operator=(MessageFile &&) = delete;
    ~MessageFile();

    void append(std::string_view text);

    /* Writes what is held back.  The first error of the file, if there was one. */
    Result<void> flush();

    /* Gives the space back; nothing more is written. */
    void abandon();

    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] int64_t size() const { return size_; }

  private:
    MessageFile(std::string path, Fd file) : path_(std::move(path)), file_(std::move(file)) {}
    void write_out(std::string_view text);

    std::string path_;
    Fd file_;
    std::string held_;
    int64_t size_ = 0;
    int error_ = 0;
    bool abandoned_ = false;
};

/* Wire bytes in, a file that meets the module's needs out: CR LF, no NUL, no Return-Path, header
   ended by a blank line. */
class MessageReceiver
{
  public:
    MessageReceiver(MessageFile file, int64_t size_limit)
        : file_(std::move(file)), size_limit_(size_limit)
    {
    }

    /* Takes bytes of the data; answers how many (all, unless finished()). */
    size_t feed(std::string_view wire);

    /* The end of the data has been seen. */
    [[nodiscard]] bool finished() const { return decoder_.finished(); }

    /* Once finished: 250 and the file is whole, or why the mail cannot be taken. */
    Reply verdict();

    [[nodiscard]] const HeaderFacts &facts() const { return filter_.facts(); }
    [[nodiscard]] const MessageFile &file() const { return file_; }

  private:
    bool refused();

    MessageFile file_;
    int64_t size_limit_;
    DataDecoder decoder_;
    HeaderFilter filter_;
    std::string decoded_;
    std::string filtered_;
};

#endif
