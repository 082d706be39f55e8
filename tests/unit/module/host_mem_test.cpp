/* Host memory. */
#include "module/host_mem.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>

#include "module/tcb.h"
#include "tests/support/fake_host.h"

TEST(HostMemory, ComesFromTheCurrentDeliveryAndGoesBackThroughIt)
{
    FakeHost host;
    tcbcreate(&host.request);
    void *memory = host_allocate(100);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(memory) % 16);
    EXPECT_EQ(2, host.live_blocks);
    tcbfree();
    host_release(memory); /* after the delivery: still through its release operation */
    EXPECT_EQ(0, host.live_blocks);
}

TEST(HostMemory, ThatIsNotThereIsNullWithENOMEM)
{
    FakeHost host;
    tcbcreate(&host.request);
    host.fail_allocation = 0;
    errno = 0;
    EXPECT_EQ(nullptr, host_allocate(100));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(nullptr, host_allocate(SIZE_MAX));
    host_release(nullptr);
    tcbfree();
}

TEST(HostMemory, HeldForAScopeIsReleasedUnlessTaken)
{
    FakeHost host;
    tcbcreate(&host.request);
    char *taken;
    {
        HostPtr<char> dropped(10), kept(host_copy_text("text"));
        taken = kept.take();
    }
    EXPECT_STREQ("text", taken);
    EXPECT_EQ(2, host.live_blocks);
    host_release(taken);
    tcbfree();
}
