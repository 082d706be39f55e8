/* Thousands of operations, and nobody pulls the plug. */
#ifndef TESTS_WITHOUT_SYNC_H
#define TESTS_WITHOUT_SYNC_H

#include "module/os.h"

/* While it lives, nothing is synced.  Make it before any FaultOs. */
class WithoutSync
{
  public:
    WithoutSync() : former_(os), calls_(*os)
    {
        calls_.fsync = [](int) { return 0; };
        os = &calls_;
    }
    ~WithoutSync() { os = former_; }
    WithoutSync(const WithoutSync &) = delete;
    WithoutSync &operator=(const WithoutSync &) = delete;

  private:
    const OsCalls *former_;
    OsCalls calls_;
};

#endif
