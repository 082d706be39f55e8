/* Memory of the calling thread's host allocator. */
#ifndef MODULE_HOST_MEM_H
#define MODULE_HOST_MEM_H

#include <stddef.h>

/* size bytes, not cleared, from the allocate operation of the thread's current request; null with
   errno ENOMEM.  Each block remembers the release operation it goes back through, so that it may
   outlive the delivery that asked for it. */
[[nodiscard]] void *host_allocate(size_t size);

/* Gives a block of host_allocate() back; null is allowed.  errno is kept. */
void host_release(void *memory);

/* A copy of the text in host memory, or null. */
[[nodiscard]] char *host_copy_text(const char *text);

/* Holds one block of host memory for a scope.  Test p before use. */
template <class T> struct HostPtr {
    T *p;
    explicit HostPtr(size_t bytes) : p(static_cast<T *>(host_allocate(bytes))) {}
    explicit HostPtr(T *owned) : p(owned) {}
    HostPtr(const HostPtr &) = delete;
    HostPtr &operator=(const HostPtr &) = delete;
    ~HostPtr() { host_release(p); }
    T *take()
    {
        T *taken = p;
        p = nullptr;
        return taken;
    }
};

#endif
