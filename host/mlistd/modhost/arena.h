/* Memory of one delivery: released blocks are used again within it, everything is freed at its
   end, whatever the module forgot to give back.  One thread. */
#ifndef HOST_MLISTD_MODHOST_ARENA_H
#define HOST_MLISTD_MODHOST_ARENA_H

#include <array>
#include <cstddef>
#include <cstdint>

class Arena
{
  public:
    /* At most limit bytes at a time, by its own count. */
    explicit Arena(size_t limit = 256 * 1024 * 1024) : limit_(limit) {}
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;
    ~Arena();

    /* Aligned for any object; null when there is none or the limit is reached. */
    [[nodiscard]] void *allocate(size_t size);

    /* A block of this arena; null, or a block of another one, is ignored. */
    void release(void *memory);

    /* Bytes taken from the system. */
    [[nodiscard]] size_t footprint() const { return footprint_; }

  private:
    struct Block; /* in front of every piece of memory handed out */
    struct Chunk;

    /* Block sizes 32, 64, ... 64 KB, head included; larger ones come singly from the system. */
    static constexpr size_t CLASS_COUNT = 12;
    static constexpr size_t SMALLEST = 32;
    static constexpr size_t LARGEST = SMALLEST << (CLASS_COUNT - 1);

    Block *from_chunk(size_t size);
    Block *allocate_large(size_t size);
    void release_large(Block *block);

    size_t limit_;
    size_t footprint_ = 0;
    std::array<Block *, CLASS_COUNT> free_{};
    Chunk *chunks_ = nullptr;
    char *next_ = nullptr; /* unused rest of the newest chunk */
    size_t left_ = 0;
    Block *large_ = nullptr;
};

#endif
