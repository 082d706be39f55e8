/* A job as the pipeline hands it to the header code, the header loop around that code, and buffers
   that notice when they are overrun. */
#ifndef TESTS_UNIT_HEADERS_HEADER_JOB_H
#define TESTS_UNIT_HEADERS_HEADER_JOB_H

#include <memory>
#include <string>
#include <vector>

#include "module/job.h"

/* Posting 12 of mylist@lists.example with the default settings.  The module's switches are off for
   as long as the object lives. */
class HeaderJob
{
  public:
    HeaderJob();
    ~HeaderJob();
    HeaderJob(const HeaderJob &) = delete;
    HeaderJob &operator=(const HeaderJob &) = delete;

    DeliveryJob *operator->() { return job_.get(); }
    DeliveryJob *get() { return job_.get(); }

    void set_subject(const std::string &text);
    void set_sender(const std::string &text);
    void set_format(const std::string &text);

    /* Passes a line through header_proc() in a buffer of LINE_SIZE bytes, which it updates. */
    int process(std::string &line);

    /* What the pipeline writes for a header, its blank line included; "" when a step fails. */
    std::string rewrite(const std::string &header);

  private:
    bool add_end_lines(std::string &out);

    std::unique_ptr<DeliveryJob> job_;
};

/* size bytes between canaries; size may be 0. */
class GuardedBuffer
{
  public:
    explicit GuardedBuffer(size_t size);
    char *data() { return bytes_.data() + GUARD; }
    int size() const { return static_cast<int>(bytes_.size() - 2 * GUARD); }
    bool intact() const;     /* neither canary was touched */
    bool terminated() const; /* a NUL stands within the size bytes */

  private:
    static constexpr size_t GUARD = 32;
    std::vector<char> bytes_;
};

/* The same bytes for the same seed, on every machine. */
class RandomBytes
{
  public:
    explicit RandomBytes(uint32_t seed) : state_(seed * 2654435761u + 1) {}
    uint32_t below(uint32_t limit);
    char pick(const std::string &alphabet);
    std::string text(size_t length, const std::string &alphabet);

  private:
    uint64_t state_;
};

/* A field's lines joined as header_proc() joins them: CR LF and the tab of a fold go. */
std::string unfold(std::string text);

#define ESC "\x1b"
#define KANJI ESC "$B"
#define ASCII ESC "(B"

#endif
