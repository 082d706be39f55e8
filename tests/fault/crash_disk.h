/* What a machine that loses its power may leave of a directory tree.

   While a CrashDisk lives, every change that the module makes below its root goes to the kernel
   and is written down here.  For any moment since, images_at() answers the trees that the disk may
   hold if the power failed then.  Only two things are taken for granted:

   - what was written to a file before a sync of that file is there, and so is its length;
   - what happened to the names in a directory before a sync of that directory has happened.

   Everything else may have reached the disk or not, in any order:

   - each write to a file, also one half of it; its length may be there without its bytes (zeros);
   - each name on its own, in any of the states that it went through.  A rename is one change of
     two names.  The sync of a new file says nothing about its name.

   Not modelled: bytes that change by themselves, and a disk that says "synced" and lies. */
#ifndef TESTS_FAULT_CRASH_DISK_H
#define TESTS_FAULT_CRASH_DISK_H

#include <map>
#include <string>
#include <vector>

#include "module/os.h"

/* A tree: files by name, relative to the root; directories have the file DIRECTORY.  Two names of
   one file are hard links. */
struct DiskImage {
    static constexpr int DIRECTORY = -1;
    std::map<std::string, int> names;
    std::map<int, std::string> contents;
};

bool operator<(const DiskImage &left, const DiskImage &right);

DiskImage read_image(const std::string &root);
void write_image(const std::string &root,
                 const DiskImage &image); /* root holds nothing else then */

struct SyncCall {
    std::string name; /* relative to the root; a directory's ends in "/" */
    int nth;          /* of that name in its step, 0-based */
    bool changed;     /* there was something to sync */
};

constexpr int EVERY_SYNC = -1;

class CrashDisk
{
  public:
    explicit CrashDisk(const std::string &root); /* what is there is on the disk */
    ~CrashDisk();
    CrashDisk(const CrashDisk &) = delete;
    CrashDisk &operator=(const CrashDisk &) = delete;

    /* From now on the nth (0-based) sync of this name does nothing, or every one; counted anew for
       each step. */
    void leave_out_sync(const std::string &name, int nth);
    void start_step() { seen_.clear(); }

    size_t moment() const { return changes_.size(); } /* how many changes there were so far */
    std::vector<DiskImage> images_at(size_t moment) const;
    const std::vector<SyncCall> &syncs() const { return syncs_; }

    struct Change {
        enum Kind {
            write,
            lengthen,
            shorten,
            set_name,
            drop_name,
            move_name,
            sync_file,
            sync_names
        };
        Kind kind;
        int file;
        off_t at;
        std::string bytes;
        std::string name, second_name; /* a rename leads from the first to the second */
        std::string directory;         /* of the name, or of the file's first name */
    };

  private:
    friend struct CrashDiskCalls;
    std::string root_;
    const OsCalls *former_;
    OsCalls calls_;
    DiskImage before_;
    std::vector<Change> changes_;
    std::vector<SyncCall> syncs_;
    std::string left_out_;
    int left_out_nth_ = 0;
    std::map<std::string, int> seen_; /* syncs of this step */

    /* As the running system sees it. */
    std::map<std::string, int> names_;
    std::map<int, off_t> sizes_;
    std::map<int, std::string> directories_; /* where a file was made */
    std::map<int, int> open_files_;
    std::map<int, std::string> open_directories_;
    int next_file_ = 0;
};

#endif
