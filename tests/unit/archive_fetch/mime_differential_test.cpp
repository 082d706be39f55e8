/* The structure parser against its plain form, over messages made up of what structure is made of.
 */
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "tests/reference/mime_literal.h"
#include "tests/support/golden.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

static bool same(const literal::Part *expected, const PartNode *part, int fd)
{
    if (expected == nullptr || part == nullptr) return expected == nullptr && part == nullptr;
    if (expected->start != part->start || expected->header_length != part->header_length ||
        expected->body_length != part->body_length ||
        expected->children.size() != part->child_count)
        return false;
    if (expected->has_type != (part->content_type != nullptr) ||
        (expected->has_type && expected->type != part->content_type))
        return false;
    if (part->lines_known && expected->lines != part->lines) return false;
    if (expected->lines != getlines(fd, part->start + part->header_length, part->body_length))
        return false;
    if (!same(expected->enclosed.get(), part->enclosed, fd)) return false;
    for (uint32_t i = 0; i < part->child_count; ++i)
        if (!same(expected->children[i].get(), part->children[i], fd)) return false;
    return true;
}

class Messages
{
  public:
    explicit Messages(unsigned seed) : random_(seed) {}

    std::string next()
    {
        std::string text = "Content-Type: " + type() + line_end() + "\r\n";
        for (unsigned pieces = random_() % 14; pieces > 0; --pieces)
            text += piece();
        return text;
    }

  private:
    std::string one_of(std::initializer_list<const char *> words)
    {
        return words.begin()[random_() % words.size()];
    }
    std::string boundary() { return one_of({"a", "a", "b", "ab", "b b", ""}); }
    std::string line_end() { return one_of({"\r\n", "\r\n", "\r\n", "\n", "\r", "\r\n \r\n"}); }
    std::string type()
    {
        switch (random_() % 6) {
        case 0:
            return "message/rfc822";
        case 1:
            return "text/plain";
        case 2:
            return "multipart/mixed; boundary=" + boundary();
        case 3:
            return one_of({"multipart/x", "Multipart/x; bOUNDARY=\"a", "message/rfc822; x=y"});
        default:
            return "multipart/mixed; x=y; boundary=\"" + boundary() + "\"; z";
        }
    }
    std::string piece()
    {
        switch (random_() % 10) {
        case 0:
        case 1:
        case 2:
            return "--" + boundary() + one_of({"", "", "--", "x"}) + line_end();
        case 3:
        case 4:
            return "Content-Type: " + type() + line_end() + one_of({"", "\r\n"});
        case 5:
        case 6:
            return "\r\n";
        case 7:
            return one_of({"X: y", "text", "-", "--", "\t"}) + line_end();
        case 8:
            return std::string(2044 + random_() % 4, 'x') + one_of({"", "--a", "\r\n"}) +
                   line_end();
        default:
            return line_end();
        }
    }
    std::mt19937 random_;
};

TEST(MimeDifferential, AgreesWithThePlainForm)
{
    Messages messages(19);
    int structured = 0;
    for (int round = 0; round < 3000; ++round) {
        const std::string text = messages.next();
        const MessageText message(text);
        const uint32_t header = header_size_of(text);
        const auto expected = literal::parse(text, 0, header, text.size() - header);
        PartNode *tree = message.parse();
        EXPECT_TRUE(same(expected.get(), tree, message.fd())) << visible(text);
        if (tree != nullptr && (tree->enclosed != nullptr || tree->child_count > 1)) ++structured;
        list_freemime(tree);
        if (testing::Test::HasFailure()) break;
    }
    EXPECT_GT(structured, 300);
    take_log();
}
