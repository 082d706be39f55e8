/* Who may be in the module at a time. */
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "host/mlistd/modhost/gate.h"

using std::chrono::milliseconds;

namespace
{

/* Runs a thread for each list name through the gate, where each stays until so many have been
   inside at once; answers the most that were. */
int most_at_once(DeliveryGate &gate, const std::vector<std::string> &lists, int awaited)
{
    std::atomic<int> inside = 0;
    std::atomic<int> most = 0;
    std::vector<std::thread> threads;
    threads.reserve(lists.size());
    for (const std::string &list : lists)
        threads.emplace_back([&, list] {
            const auto pass = gate.enter(list, milliseconds(60'000));
            ASSERT_TRUE(pass);
            const int now = ++inside;
            int seen = most;
            while (now > seen && !most.compare_exchange_weak(seen, now)) {
            }
            while (most < awaited)
                std::this_thread::yield();
            /* That nobody else comes in shows only after a while. */
            std::this_thread::sleep_for(milliseconds(20));
            --inside;
        });
    for (std::thread &thread : threads)
        thread.join();
    return most;
}

} // namespace

TEST(DeliveryGate, AdmitsOneAtATimeForEachList)
{
    DeliveryGate gate(16);
    EXPECT_EQ(most_at_once(gate, {"a", "a", "a", "a"}, 1), 1);
}

TEST(DeliveryGate, AdmitsListsBesideEachOtherUpToItsPlaces)
{
    DeliveryGate wide(16);
    EXPECT_EQ(most_at_once(wide, {"a", "b", "c", "d", "e"}, 5), 5);
    DeliveryGate narrow(2);
    EXPECT_EQ(most_at_once(narrow, {"a", "b", "c", "d", "e", "a", "b"}, 2), 2);
}

TEST(DeliveryGate, GivesUpAfterTheTimeAllowed)
{
    DeliveryGate gate(1);
    {
        const auto held = gate.enter("a", milliseconds(0));
        ASSERT_TRUE(held);
        EXPECT_FALSE(gate.enter("a", milliseconds(20))) << "the list is busy";
        EXPECT_FALSE(gate.enter("b", milliseconds(20))) << "the place is taken";
    }
    EXPECT_TRUE(gate.enter("a", milliseconds(0)));
    EXPECT_TRUE(gate.enter("b", milliseconds(0)));
}

TEST(DeliveryGate, WaitingForAListTakesNoPlace)
{
    DeliveryGate gate(2);
    const auto held = gate.enter("a", milliseconds(0));
    std::thread waiting([&] { EXPECT_FALSE(gate.enter("a", milliseconds(300))); });
    /* Nothing outside tells that a thread waits there; by now it does. */
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(gate.enter("b", milliseconds(0)));
    waiting.join();
}
