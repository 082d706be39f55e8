/* A value, or the error that stood in its way. */
#ifndef HOST_BASE_RESULT_H
#define HOST_BASE_RESULT_H

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <variant>

/* What went wrong, for people (one line, no final full stop), and the errno value or 0. */
struct Error {
    std::string text;
    int code = 0;
};

/* "WHAT: No such file or directory", with the calling thread's errno. */
inline Error system_error(const std::string &what)
{
    const int code = errno;
    char buffer[128];
    return Error{what + ": " + strerror_r(code, buffer, sizeof(buffer)), code};
}

template <typename T> class [[nodiscard]] Result
{
  public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return state_.index() == 0; }
    T &operator*() { return std::get<0>(state_); }
    const T &operator*() const { return std::get<0>(state_); }
    T *operator->() { return &std::get<0>(state_); }
    const T *operator->() const { return &std::get<0>(state_); }
    [[nodiscard]] const Error &error() const { return std::get<1>(state_); }

  private:
    std::variant<T, Error> state_;
};

/* Success has no value: "return {};". */
template <> class [[nodiscard]] Result<void>
{
  public:
    Result() = default;
    Result(Error error) : error_(std::move(error)), failed_(true) {}

    explicit operator bool() const { return !failed_; }
    [[nodiscard]] const Error &error() const { return error_; }

  private:
    Error error_;
    bool failed_ = false;
};

#endif
