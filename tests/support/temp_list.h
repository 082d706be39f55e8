/* Control and archive trees in a temporary directory, with the module's roots pointed there. */
#ifndef TESTS_TEMP_LIST_H
#define TESTS_TEMP_LIST_H

#include <memory>
#include <string>
#include <vector>

#include "module/job.h"

/* A temporary directory, removed with everything in it at the end. */
class TempDir
{
  public:
    TempDir(); /* below TMPDIR, or /tmp */
    explicit TempDir(const std::string &below);
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

/* Whole files.  read_file() answers "" for a missing file; exists() tells them apart. */
std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &content);
bool exists(const std::string &path);
std::vector<std::string> list_directory(const std::string &path); /* sorted, without . and .. */

/* Every file below path as "relative name\tmode\tsize\tcontent", sorted: two equal trees give
   equal texts. */
std::string tree_text(const std::string &path);

/* One list, "mylist" of "example.jp" unless told otherwise, with control directory (msg, jnl and
   all control files, empty), default settings in job()->settings, and no archive (its parent
   directory is there).  g_path_mlist and
   g_mbox_list point into the temporary directory for as long as the object lives. */
class TempList
{
  public:
    explicit TempList(const std::string &list = "mylist", const std::string &domain = "example.jp");
    ~TempList();

    DeliveryJob *job() { return job_.get(); }
    std::string control(const std::string &name = "") const; /* path in the control directory */
    std::string box(const std::string &name = "") const;     /* path in the archive, INBOX/name */
    const std::string &root() const { return dir_.path(); }

    void put(const std::string &name, const std::string &content); /* writes a control file */
    std::string get(const std::string &name) const;                /* reads one */

  private:
    TempDir dir_;
    std::string list_, domain_;
    std::unique_ptr<DeliveryJob> job_;
};

#endif
