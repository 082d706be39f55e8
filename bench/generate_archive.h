/* An archive to read from: mails of a Japanese list, made up from a seed. */
#ifndef BENCH_GENERATE_ARCHIVE_H
#define BENCH_GENERATE_ARCHIVE_H

#include <stdint.h>

#include <string>
#include <vector>

/* A mail of 0.5 to 5 KB with CR LF line ends: half of them in ASCII, half in ISO-2022-JP with an
   encoded subject; every tenth has three parts, one of them base64. */
class MailGenerator
{
  public:
    explicit MailGenerator(uint64_t seed) : state_(seed) {}
    std::string make();

  private:
    uint32_t below(uint32_t n);
    std::string words(uint32_t count);
    std::string kanji(uint32_t count);
    std::string subject(bool japanese);
    std::string text(bool japanese);
    std::string parts();
    uint64_t state_;
};

/* A mailbox of so many of them, in memory where the machine has a place for that (/dev/shm);
   removed at the end. */
class GeneratedArchive
{
  public:
    GeneratedArchive(uint32_t messages, uint64_t seed);
    ~GeneratedArchive();
    GeneratedArchive(const GeneratedArchive &) = delete;
    GeneratedArchive &operator=(const GeneratedArchive &) = delete;
    std::string path() const { return directory_ + "/INBOX"; }
    std::string message_file(uint32_t uid) const;
    const std::vector<uint32_t> &sizes() const { return sizes_; }

  private:
    std::string directory_;
    std::vector<uint32_t> sizes_;
};

#endif
