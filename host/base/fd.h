/* A descriptor with an owner: moved, never copied, closed by its destructor. */
#ifndef HOST_BASE_FD_H
#define HOST_BASE_FD_H

#include <cerrno>
#include <unistd.h>
#include <utility>

class Fd
{
  public:
    Fd() = default;
    explicit Fd(int number) : fd_(number) {}
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    /* Closes what it holds and takes over number; errno is kept. */
    void reset(int number = -1)
    {
        const int old = std::exchange(fd_, number);
        if (old < 0) return;
        const int saved = errno;
        close(old); /* never repeated on EINTR: Linux has released the number by then */
        errno = saved;
    }

  private:
    int fd_ = -1;
};

#endif
