#include "host/mlistd/modhost/arena.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
/* A released block is out of bounds until it is handed out again: the sanitizer sees a use of it
   as it would with malloc(). */
static void poison(void *memory, size_t size)
{
    ASAN_POISON_MEMORY_REGION(memory, size);
}
static void unpoison(void *memory, size_t size)
{
    ASAN_UNPOISON_MEMORY_REGION(memory, size);
}
#else
static void poison(void *, size_t) {}
static void unpoison(void *, size_t) {}
#endif

static constexpr size_t FIRST_CHUNK = 64 * 1024;
static constexpr size_t LAST_CHUNK = 1024 * 1024;
static constexpr uint32_t LARGE = UINT32_MAX;

struct alignas(16) Arena::Block {
    const Arena *owner;
    uint32_t size_class; /* or LARGE */
    bool released;
};

/* A large block's links stand before its head, a free small block's link where its memory was. */
struct alignas(16) LargeLinks {
    void *next;
    void *previous;
    size_t size;
};

struct alignas(16) Arena::Chunk {
    Chunk *next;
    size_t size;
};

static LargeLinks *links_of(void *block)
{
    return static_cast<LargeLinks *>(block) - 1;
}

static uint32_t class_of(size_t size)
{
    const size_t rounded = std::bit_ceil(std::max<size_t>(size, 32));
    return static_cast<uint32_t>(std::countr_zero(rounded) - 5);
}

Arena::~Arena()
{
    while (large_ != nullptr)
        release_large(large_);
    while (chunks_ != nullptr) {
        Chunk *chunk = chunks_;
        chunks_ = chunk->next;
        unpoison(chunk, chunk->size);
        free(chunk);
    }
}

Arena::Block *Arena::from_chunk(size_t size)
{
    if (size > left_) {
        const size_t grown =
            chunks_ == nullptr ? FIRST_CHUNK : std::min(chunks_->size * 2, LAST_CHUNK);
        const size_t wanted = std::max(grown, size + sizeof(Chunk));
        void *memory = wanted <= limit_ - footprint_ ? malloc(wanted) : nullptr;
        if (memory == nullptr) return nullptr;
        footprint_ += wanted;
        chunks_ = new (memory) Chunk{chunks_, wanted};
        next_ = reinterpret_cast<char *>(chunks_ + 1);
        left_ = wanted - sizeof(Chunk);
        poison(next_, left_);
    }
    Block *block = reinterpret_cast<Block *>(next_);
    next_ += size;
    left_ -= size;
    return block;
}

Arena::Block *Arena::allocate_large(size_t size)
{
    const size_t whole = size + sizeof(LargeLinks);
    void *memory = whole > size && whole <= limit_ - footprint_ ? malloc(whole) : nullptr;
    if (memory == nullptr) return nullptr;
    footprint_ += whole;
    LargeLinks *links = new (memory) LargeLinks{large_, nullptr, whole};
    Block *block = reinterpret_cast<Block *>(links + 1);
    if (large_ != nullptr) links_of(large_)->previous = block;
    large_ = block;
    return block;
}

void Arena::release_large(Block *block)
{
    LargeLinks *links = links_of(block);
    if (links->next != nullptr) links_of(links->next)->previous = links->previous;
    if (links->previous != nullptr) links_of(links->previous)->next = links->next;
    if (large_ == block) large_ = static_cast<Block *>(links->next);
    footprint_ -= links->size;
    free(links);
}

void *Arena::allocate(size_t size)
{
    if (size > limit_) return nullptr;
    const size_t whole = size + sizeof(Block);
    const bool small = whole <= LARGEST;
    const uint32_t size_class = small ? class_of(whole) : LARGE;
    Block *block = nullptr;
    if (small && free_[size_class] != nullptr) {
        block = free_[size_class];
        unpoison(block + 1, (SMALLEST << size_class) - sizeof(Block));
        free_[size_class] = *reinterpret_cast<Block **>(block + 1);
    } else if (small) {
        block = from_chunk(SMALLEST << size_class);
        if (block != nullptr) unpoison(block, SMALLEST << size_class);
    } else {
        block = allocate_large(whole);
    }
    if (block == nullptr) return nullptr;
    return new (block) Block{this, size_class, false} + 1;
}

void Arena::release(void *memory)
{
    if (memory == nullptr) return;
    Block *block = static_cast<Block *>(memory) - 1;
    if (block->owner != this || block->released) return;
    if (block->size_class == LARGE) return release_large(block);
    block->released = true;
    *reinterpret_cast<Block **>(memory) = free_[block->size_class];
    free_[block->size_class] = block;
    poison(memory, (SMALLEST << block->size_class) - sizeof(Block));
}
