/* A list in host memory that grows as it is filled. */
#ifndef ARCHIVE_GROWING_H
#define ARCHIVE_GROWING_H

#include <stddef.h>
#include <string.h>
#include <type_traits>

#include "module/host_mem.h"

template <class T> class GrowingList
{
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    GrowingList() = default;
    ~GrowingList() { host_release(items_); }
    GrowingList(const GrowingList &) = delete;
    GrowingList &operator=(const GrowingList &) = delete;

    /* False without memory; the list is as it was then. */
    [[nodiscard]] bool append(const T *items, size_t count)
    {
        if (!make_room(count)) return false;
        if (count > 0) memcpy(items_ + count_, items, count * sizeof(T));
        count_ += count;
        return true;
    }
    [[nodiscard]] bool add(const T &item) { return append(&item, 1); }
    [[nodiscard]] bool reserve(size_t more) { return make_room(more); }

    T *items() { return items_; }
    const T *items() const { return items_; }
    size_t count() const { return count_; }
    T &last() { return items_[count_ - 1]; }

    /* The items, from now on the caller's to release; null when there are none. */
    T *take()
    {
        T *taken = items_;
        items_ = nullptr;
        count_ = capacity_ = 0;
        return taken;
    }

  private:
    bool make_room(size_t more)
    {
        if (capacity_ - count_ >= more) return true;
        size_t capacity = capacity_ < 16 ? 16 : capacity_ * 2;
        if (capacity - count_ < more) capacity = count_ + more;
        T *grown = static_cast<T *>(host_allocate(capacity * sizeof(T)));
        if (grown == nullptr) return false;
        if (count_ > 0) memcpy(grown, items_, count_ * sizeof(T));
        host_release(items_);
        items_ = grown;
        capacity_ = capacity;
        return true;
    }

    T *items_ = nullptr;
    size_t count_ = 0, capacity_ = 0;
};

/* Text made of pieces; take() it only after finish(). */
class GrowingText : public GrowingList<char>
{
  public:
    [[nodiscard]] bool text(const char *text) { return append(text, strlen(text)); }
    [[nodiscard]] bool finish() { return add('\0'); }
};

#endif
