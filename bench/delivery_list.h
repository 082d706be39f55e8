/* A list of any size, made past the module, and a host that posts to it and discards what is
   submitted. */
#ifndef BENCH_DELIVERY_LIST_H
#define BENCH_DELIVERY_LIST_H

#include <stdint.h>

#include <string>

/* A directory of its own below another one; removed at the end. */
class WorkDirectory
{
  public:
    explicit WorkDirectory(const std::string &below);
    ~WorkDirectory();
    WorkDirectory(const WorkDirectory &) = delete;
    WorkDirectory &operator=(const WorkDirectory &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

class DeliveryList
{
  public:
    /* Points the module's roots below the directory; one list at a time. */
    explicit DeliveryList(const std::string &directory);

    /* An archive of so many messages: an index, and message files that are links of one. */
    void make_archive(uint32_t messages);

    /* So many members, the last of whom posts: his look-up reads the whole roster. */
    void make_roster(uint32_t members);

    void set_keep(uint32_t messages); /* "journal=" */

    std::string roster() const { return control("member"); }
    std::string active() const { return control("active"); }

    void post(); /* a mail of 4,096 bytes; aborts when it is not accepted */

    /* A command mail of alice's with these lines, CR LF ended; aborts likewise. */
    void command(const std::string &lines);

    /* Puts a message of so many bytes into the archive's place of an existing one. */
    void make_large(uint32_t uid, size_t bytes);

  private:
    std::string control(const std::string &name) const;
    std::string box(const std::string &name) const;
    void deliver(const std::string &file, bool as_command);
    std::string directory_, message_;
};

#endif
