#include "tests/unit/codec/codec_calls.h"

#include <stdio.h>
#include <string.h>

#include <memory>

#include "codec/conv.h"
#include "tests/reference/base64.h"
#include "tests/reference/jis.h"
#include "tests/support/log_capture.h"

using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;

static constexpr char GUARD = '\xA5';
static constexpr size_t GUARD_SIZE = 64;

GuardedOutput::GuardedOutput(size_t size) : size_(size), bytes_(size + GUARD_SIZE, GUARD) {}

size_t GuardedOutput::touched() const
{
    size_t size = bytes_.size();
    while (size > 0 && bytes_[size - 1] == GUARD)
        --size;
    return size;
}

AssertionResult GuardedOutput::holds(const std::string &text) const
{
    if (touched() > size_)
        return AssertionFailure() << "wrote " << touched() << " bytes into " << size_;
    const std::string found(bytes_.data(), std::min(text.size() + 1, bytes_.size()));
    if (found != text + '\0')
        return AssertionFailure() << "output is " << hex(found) << "\n   instead of "
                                  << hex(text + '\0');
    return AssertionSuccess();
}

std::string hex(const std::string &bytes)
{
    std::string text;
    char digits[8];
    for (const char byte : bytes) {
        snprintf(digits, sizeof digits, "%02x ", static_cast<unsigned char>(byte));
        text += digits;
    }
    if (!text.empty()) text.pop_back();
    return text;
}

std::vector<int> take_log_numbers()
{
    std::vector<int> numbers;
    for (const LogLine &line : take_log())
        numbers.push_back(line.msgno);
    return numbers;
}

int ample_size(const std::string &text)
{
    return static_cast<int>(text.size()) * 5 + 16;
}

/* The output first, then the other things that must be so. */
static AssertionResult judge(const std::string &call, const std::string &text,
                             const AssertionResult &output, bool others, const char *what)
{
    if (output && others) return AssertionSuccess();
    AssertionResult result = AssertionFailure();
    result << call << " of " << hex(text) << ": ";
    if (!output) result << output.message();
    if (!others) result << what << " differs";
    return result;
}

/* The text in memory that ends with it, for the sanitizer to see every byte read behind it. */
static std::unique_ptr<char[]> exact_copy(const std::string &text)
{
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

AssertionResult euc2jis_agrees(const std::string &text, int size)
{
    const reference::Converted wanted = reference::euc2jis(text, size);
    GuardedOutput out(static_cast<size_t>(std::max(size, 0)));
    const int result = euc2jis(exact_copy(text).get(), out.data(), size);
    const AssertionResult output =
        size > 0 ? out.holds(wanted.output)
                 : (out.touched() == 0 ? AssertionSuccess() : AssertionFailure() << "wrote");
    return judge("euc2jis(" + std::to_string(size) + ")", text, output,
                 result == (wanted.complete ? 0 : -1), "the result");
}

AssertionResult sjis2jis_agrees(const std::string &text, int limit)
{
    const std::string wanted = reference::sjis2jis(text, limit);
    GuardedOutput out(static_cast<size_t>(std::max(limit + 11, 1)));
    const char *result = sjis2jis(exact_copy(text).get(), out.data(), limit);
    return judge("sjis2jis(" + std::to_string(limit) + ")", text, out.holds(wanted),
                 result == out.data(), "the result");
}

AssertionResult jis2sjis_agrees(const std::string &text, int limit)
{
    std::string altered;
    const reference::Converted wanted = reference::jis2sjis(text, limit, &altered);
    GuardedOutput out(static_cast<size_t>(std::max(limit, 0)));
    const std::unique_ptr<char[]> in = exact_copy(text);
    const char *result = jis2sjis(in.get(), out.data(), limit);
    const AssertionResult output =
        limit > 0 ? out.holds(wanted.output)
                  : (out.touched() == 0 ? AssertionSuccess() : AssertionFailure() << "wrote");
    return judge("jis2sjis(" + std::to_string(limit) + ")", text, output,
                 result == (wanted.complete ? out.data() : nullptr) &&
                     std::string(in.get()) == altered,
                 "the result or the altered input");
}

AssertionResult base64_encode_agrees(const std::string &text, int size)
{
    const reference::Coded wanted = reference::base64_encode(text, size);
    GuardedOutput out(static_cast<size_t>(std::max(size, 0)));
    take_log();
    const int result = mlist_base64_encode(exact_copy(text).get(), out.data(), size);
    const AssertionResult output =
        size > 0 ? out.holds(wanted.output)
                 : (out.touched() == 0 ? AssertionSuccess() : AssertionFailure() << "wrote");
    return judge("mlist_base64_encode(" + std::to_string(size) + ")", text, output,
                 result == wanted.result && take_log_numbers() == wanted.logs,
                 "the result or the log");
}

AssertionResult base64_decode_agrees(const std::string &text)
{
    const reference::Coded wanted = reference::base64_decode(text);
    GuardedOutput out(text.size() * 3 / 4 + 8);
    take_log();
    const int result = mlist_base64_decode(exact_copy(text).get(), out.data());
    return judge("mlist_base64_decode", text, out.holds(wanted.output),
                 result == wanted.result && take_log_numbers() == wanted.logs,
                 "the result or the log");
}

AssertionResult qp_encode_agrees(const std::string &text, int line_length)
{
    const reference::Coded wanted = reference::quoted_printable_encode(text, line_length);
    GuardedOutput out(text.size() * 3 + 3);
    take_log();
    const int result =
        mlist_quoted_printable_encode(exact_copy(text).get(), out.data(), line_length);
    return judge("mlist_quoted_printable_encode(" + std::to_string(line_length) + ")", text,
                 out.holds(wanted.output),
                 result == wanted.result && take_log_numbers() == wanted.logs,
                 "the result or the log");
}

AssertionResult qp_decode_agrees(const std::string &text)
{
    const reference::Coded wanted = reference::quoted_printable_decode(text);
    GuardedOutput out(text.size() + 1);
    take_log();
    const int result = quoted_printable_decode(exact_copy(text).get(), out.data());
    return judge("quoted_printable_decode", text, out.holds(wanted.output),
                 result == wanted.result && take_log_numbers() == wanted.logs,
                 "the result or the log");
}
