/* The descriptor numbers up to 133 are kept away from everything that matters.

   KEPT: the module's copying of a control file, after a failed sync, closes the descriptor whose
   number equals the errno value.  In a process with many threads that number may be a client, a
   list's lock or a queued mail.  So every number that is an errno value is taken by /dev/null from
   the start, and what has been closed is put back.  Test: Placeholders.TakeBackOnlyTheirExactNumber
 */
#ifndef HOST_BASE_PLACEHOLDERS_H
#define HOST_BASE_PLACEHOLDERS_H

#include "host/base/fd.h"
#include "host/base/result.h"

/* The greatest errno value of Linux. */
constexpr int LAST_PLACEHOLDER = 133;

class Placeholders
{
  public:
    /* Takes every free number up to LAST_PLACEHOLDER.  For the start of a process, before it has
       opened anything: what is open already on 0 to 2 stays, and so does what stands on other
       numbers (see moved_above()). */
    static Result<Placeholders> take();

    /* Takes numbers back that have been closed since; one system call when none has.  Never touches
       a number that is in use; a number that another thread takes meanwhile stays with that thread
       until it closes it. */
    void restore() const;

  private:
    Fd null_; /* /dev/null, on a number above the last placeholder */
};

/* Moves a descriptor that came from outside (a passed socket) above the placeholders.  -1 with
   errno and the descriptor as it was when that fails. */
[[nodiscard]] int moved_above(int fd);

#endif
