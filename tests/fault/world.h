/* A list with members and an archive, the host that delivers to it, and what this host was
   promised: the subject of every test that disturbs an operation. */
#ifndef TESTS_FAULT_WORLD_H
#define TESTS_FAULT_WORLD_H

#include <set>
#include <string>
#include <vector>

#include "tests/fault/crash_disk.h"
#include "tests/support/fake_host.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"

/* Where temporary directories are made: in memory where the system has such a place, since these
   tests make and remove files by the hundred thousand.  Sets TMPDIR if nobody did. */
std::string temporary_root();

/* While it lives, nothing is synced and the clock stands still: ids and dates are those of the run
   that it is compared with.  Make it before any FaultOs. */
class StillMachine
{
  public:
    StillMachine();
    ~StillMachine() { os = former_; }
    StillMachine(const StillMachine &) = delete;
    StillMachine &operator=(const StillMachine &) = delete;

  private:
    const OsCalls *former_;
    OsCalls calls_;
};

struct Outcome {
    int exit;          /* ModuleMain()'s, or 0 and 75 for operations without one */
    std::string reply; /* its text */
};

class World;

/* What a process that died in the middle of putting the next contents in place leaves. */
void leave_half_committed(World &world, const char *name, const std::string &next);
void leave_half_an_index(World &world);

using Complaints = std::set<std::string>; /* promises that were not kept */

/* Where nobody could remove them, the daemon does so after a day. */
void forgive_work_files(Complaints *complaints);

/* Postings are known by a number of the sender's, which is in their text. */
class World
{
  public:
    /* Lines of "init" that differ from the example's.  The archive has the postings 1 to 3; alice
       gets every posting, bob none, dora digests. */
    explicit World(const std::vector<std::string> &settings = {}, bool banners = false);

    Outcome post(int posting); /* by alice */
    Outcome post_as(const std::string &sender, int posting);
    Outcome command(const std::string &sender, const std::string &line);

    /* What the daemon does with a list before it takes mail: recovers its files and derives
       "active" and "digest" from the roster. */
    void start_check();

    /* Asks for everything that a host may rely on after the next posting: nothing acknowledged is
       lost, no number is given twice, all is whole, nothing is left over.  Postings handed over so
       far, however the run that did it ended, are the ones whose numbers are taken. */
    Complaints complaints() const;

    /* The same for what is not the archive's: the roster and what follows from it, side files,
       locks. */
    Complaints control_complaints() const;

    /* As it lies on the disk. */
    DiskImage image() const { return read_image(list.root()); }
    void restore(const DiskImage &image) { write_image(list.root(), image); }

    /* What was promised, to set it back together with the files. */
    struct Promises {
        std::set<int> acknowledged;              /* postings: the module answered 0 */
        std::set<std::pair<uint32_t, int>> sent; /* number and posting: handed to the host */
        std::set<int> unheard;                   /* there was nobody to send them to */
        std::set<int> excused;                   /* denied, or unheard */
        std::set<uint32_t> digested;             /* numbers that went out in a digest */
    };
    Promises promises;

    std::string expected_text(int posting, uint32_t number) const;
    std::string box() const { return list.box(); }

    TempDir outside{temporary_root()}; /* where mail comes from */
    TempList list;
    OutCapture out;
    FakeHost host;
    std::function<void()> on_submit; /* after the host took something */
    std::function<bool()> is_dead;   /* from then on nothing is handed over or acknowledged */

  private:
    Outcome deliver(const std::string &text, const std::vector<std::string> &arguments);
    void note_submission(const Submission &submission);
    void archive_complaints(Complaints *found) const;
    void digest_complaints(Complaints *found) const;
    void leftover_complaints(Complaints *found) const;
    void roster_complaints(Complaints *found) const;

    std::string top_banner_, bottom_banner_;
    int32_t keep_ = 1000;
    uint32_t validity_ = 0; /* the index's UIDVALIDITY */
};

#endif
