/* Memory of one delivery. */
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>

#include "host/mlistd/modhost/arena.h"

TEST(Arena, BlocksAreAlignedAndDoNotOverlap)
{
    Arena arena;
    std::mt19937 random(1);
    std::map<char *, std::pair<size_t, char>> live;
    for (int step = 0; step < 4000; ++step) {
        if (live.size() < 200 || random() % 2 == 0) {
            const size_t size = random() % 10 == 0 ? random() % 200000 : random() % 2000;
            char *block = static_cast<char *>(arena.allocate(size));
            ASSERT_NE(block, nullptr);
            ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(max_align_t), 0u);
            const char fill = static_cast<char>(random());
            memset(block, fill, size);
            live[block] = {size, fill};
        } else {
            auto victim = live.begin();
            std::advance(victim, random() % live.size());
            const auto [size, fill] = victim->second;
            for (size_t i = 0; i < size; ++i)
                ASSERT_EQ(victim->first[i], fill) << "somebody else wrote here";
            arena.release(victim->first);
            live.erase(victim);
        }
    }
}

TEST(Arena, ReleasedMemoryIsUsedAgain)
{
    Arena arena;
    arena.release(arena.allocate(4096));
    const size_t footprint = arena.footprint();
    for (int i = 0; i < 100000; ++i) {
        void *block = arena.allocate(4096);
        memset(block, 1, 4096);
        arena.release(block);
    }
    EXPECT_EQ(arena.footprint(), footprint);
    for (int i = 0; i < 1000; ++i)
        arena.release(arena.allocate(1024 * 1024));
    EXPECT_EQ(arena.footprint(), footprint) << "large blocks go back at once";
}

TEST(Arena, EndsWithEverythingThatWasForgotten)
{
    Arena arena; /* the leak checker of a sanitizer build is the judge */
    for (size_t size : {0, 1, 100, 60000, 70000, 1000000})
        EXPECT_NE(arena.allocate(size), nullptr);
}

TEST(Arena, HasALimit)
{
    Arena arena(1024 * 1024);
    EXPECT_EQ(arena.allocate(2 * 1024 * 1024), nullptr);
    EXPECT_EQ(arena.allocate(SIZE_MAX), nullptr);
    EXPECT_EQ(arena.allocate(SIZE_MAX - 16), nullptr);
    size_t blocks = 0;
    while (arena.allocate(1000) != nullptr)
        ++blocks;
    EXPECT_GT(blocks, 500u);
    EXPECT_LE(arena.footprint(), 1024u * 1024u);
}

TEST(Arena, IgnoresWhatIsNotItsOwn)
{
    Arena mine;
    Arena other;
    void *foreign = other.allocate(100);
    mine.release(foreign);
    mine.release(nullptr);
    EXPECT_NE(mine.allocate(100), foreign);
}
