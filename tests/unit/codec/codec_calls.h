/* The codecs called with exactly the memory that their contract names and guard bytes behind it,
   and compared with the reference. */
#ifndef TESTS_CODEC_CALLS_H
#define TESTS_CODEC_CALLS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

/* size bytes for a codec to write to. */
class GuardedOutput
{
  public:
    explicit GuardedOutput(size_t size);
    char *data() { return bytes_.data(); }

    /* How many bytes from the start have been written on. */
    size_t touched() const;

    /* Whether it holds the text (zero bytes allowed in it), terminated, and nothing behind size was
       written on. */
    testing::AssertionResult holds(const std::string &text) const;

  private:
    size_t size_;
    std::vector<char> bytes_;
};

/* "1b 24 42" */
std::string hex(const std::string &bytes);

/* The numbers logged since the last call, in order. */
std::vector<int> take_log_numbers();

/* What the codec makes of the text is what the reference makes of it; the output is as large as the
   contract demands. */
testing::AssertionResult euc2jis_agrees(const std::string &text, int size);
testing::AssertionResult sjis2jis_agrees(const std::string &text, int limit);
testing::AssertionResult jis2sjis_agrees(const std::string &text, int limit);
testing::AssertionResult base64_encode_agrees(const std::string &text, int size);
testing::AssertionResult base64_decode_agrees(const std::string &text);
testing::AssertionResult qp_encode_agrees(const std::string &text, int line_length);
testing::AssertionResult qp_decode_agrees(const std::string &text);

/* Sizes at which nothing is cut. */
int ample_size(const std::string &text);

/* Every text of at most so many bytes out of the given ones. */
template <class Use> void for_each_text(const std::string &bytes, size_t longest, Use use)
{
    std::vector<std::string> texts = {""};
    for (size_t length = 0; length <= longest; ++length) {
        std::vector<std::string> longer;
        for (const std::string &text : texts) {
            use(text);
            if (length < longest)
                for (const char byte : bytes)
                    longer.push_back(text + byte);
        }
        texts.swap(longer);
    }
}

/* Every one- and two-byte text without zero bytes: alone, and in the middle of others, so that it
   is met in the middle of long runs as well as at the end of a text. */
template <class Use>
void for_each_pair(const std::vector<std::pair<std::string, std::string>> &surroundings, Use use)
{
    for (const auto &[before, behind] : surroundings)
        for (int first = 1; first <= 0xFF; ++first)
            for (int second = 0; second <= 0xFF; ++second) {
                std::string text = before + static_cast<char>(first);
                if (second != 0) text += static_cast<char>(second);
                use(text + behind);
            }
}

#endif
