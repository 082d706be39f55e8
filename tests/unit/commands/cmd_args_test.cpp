/* Message-number arguments: worked examples, and any argument against the slow way. */
#include "commands/cmd_args.h"

#include <errno.h>
#include <string.h>

#include <memory>
#include <random>

#include "archive/mbx.h"
#include "commands/cmd_archive.h"
#include "module/host_mem.h"
#include "tests/reference/number_args.h"
#include "tests/unit/commands/commands_test.h"

/* An open archive in memory that holds these numbers. */
class NumberArgs : public CommandTest
{
  protected:
    void open(const reference::Numbers &numbers)
    {
        numbers_ = numbers;
        records_.assign(numbers.size() + 1, {});
        uid_next(records_.data()) = numbers.empty() ? 1 : numbers.back() + 1;
        record_count(records_.data()) = static_cast<uint32_t>(records_.size());
        for (size_t i = 0; i < numbers.size(); ++i)
            records_[i + 1].uid = numbers[i];
        box_.index = records_.data();
        job()->mailbox = &box_;
    }
    ~NumberArgs() override { job()->mailbox = nullptr; }

    static std::string corrected(const std::string &text)
    {
        std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
        EXPECT_EQ(0, correct_argstr(buffer.data()));
        return buffer.data();
    }
    std::string expanded(const std::string &text, size_t size = LINE_SIZE)
    {
        std::vector<char> range(size + 1, '#');
        const std::string result = expand_argstr(box_.index, text.c_str(), range.data(), size);
        EXPECT_EQ('#', range[size]);
        return result;
    }
    std::set<uint32_t> set_of(const std::string &text)
    {
        unsigned char *bits = nullptr;
        size_t size = 0;
        EXPECT_EQ(0, conv_argstr(job(), text.c_str(), &bits, &size));
        const HostPtr<unsigned char> owner(bits);
        std::set<uint32_t> found;
        for (size_t byte = 0; byte < size; ++byte)
            for (int bit = 0; bit < 8; ++bit)
                if ((bits[byte] >> bit & 1) != 0) found.insert(bit_to_id(job(), byte, bit));
        EXPECT_EQ(numbers_.empty() ? 1 : (numbers_.back() - numbers_.front()) / 8 + 1, size);
        return found;
    }
    std::optional<std::pair<int, int>> range_of(const std::string &text)
    {
        int first = 99, last = 99;
        const int result = summconv_argstr(text.c_str(), box_.index, &first, &last);
        EXPECT_TRUE(result == 0 || result == -1);
        if (result < 0) return std::nullopt;
        return std::pair(first, last);
    }
    static std::string shortened(const std::string &numbers, size_t size)
    {
        std::vector<char> shown(size + 1, '#');
        const std::string result = short_argstr(numbers.c_str(), shown.data(), size);
        EXPECT_EQ('#', shown[size]);
        return result;
    }
    IndexRecord *index() { return box_.index; }

  private:
    reference::Numbers numbers_;
    std::vector<IndexRecord> records_;
    MailboxHandle box_ = {};
};

TEST_F(NumberArgs, NormalisingDropsBlanksAroundCommasAndHyphens)
{
    static const struct {
        const char *text, *wanted;
    } rows[] = {
        {"3 - 5 , 7\r\n", "3-5,7"},
        {"\t 3\t-\t5 \t,7 \t\r\n", "3-5,7"},
        {"", ""},
        {"\r\n", ""},
        {" \t ", ""},
        {"1 2  3", "1 2  3"},
        {" , ,\t- ,", ",,-,"},
        {"5", "5"},
        {"5\n6", "5"},
        {"5\r6\r\n", "5"},
        {"last: 5 ", "last: 5"},
        {"\xa0 , \xff", "\xa0,\xff"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.wanted, corrected(row.text)) << row.text;
}

TEST_F(NumberArgs, AllIsAnItemOfItsOwn)
{
    open({4, 6, 9});
    for (const char *text : {"all", "ALL", "1,ALL", "*", "*,7", "7,*", "aLl,x", "1,,all"})
        EXPECT_EQ("4-9", expanded(text)) << text;
    for (const char *text : {"ball", "all1", "al", "**", "1*", "all ", "", ",", "-all", "all-9"})
        EXPECT_EQ(text, expanded(text));
    EXPECT_EQ("4-9", expanded("all", 4));
    EXPECT_EQ("all", expanded("all", 3)) << "what does not fit leaves the argument as it is";
    open({});
    EXPECT_EQ("", expanded("5,all"));
    open({1, 4294967295u});
    EXPECT_EQ("1-4294967295", expanded("all"));
}

TEST_F(NumberArgs, SetsHoldWhatCanBeInTheArchive)
{
    using Set = std::set<uint32_t>;
    open({10, 12, 20});
    EXPECT_EQ(Set({10, 12, 15, 16, 17}), set_of("10,12,15-17"));
    EXPECT_EQ(Set({15, 16, 17}), set_of("17-15"));
    EXPECT_EQ(Set({10, 11, 12}), set_of("0-12"));
    EXPECT_EQ(Set({19, 20}), set_of("19-4294967295"));
    EXPECT_EQ(Set({10, 11}), set_of("11-")) << "from nothing, which reads as 0";
    EXPECT_EQ(Set({10, 11}), set_of("-11"));
    EXPECT_EQ(Set({}), set_of("1-9,21-30,4294967295"));
    EXPECT_EQ(Set({}), set_of(""));
    EXPECT_EQ(Set({}), set_of(",,,"));
    EXPECT_EQ(Set({}), set_of("x,all,*"));
    EXPECT_EQ(Set({12}), set_of("12x,y13"));
    EXPECT_EQ(Set({12, 13, 14}), set_of("12-14-16")) << "what follows the second number is ignored";
    open({});
    EXPECT_EQ(Set({}), set_of("1-4294967295,7"));
    open({4294967290u, 4294967295u});
    EXPECT_EQ(Set({4294967294u, 4294967295u}), set_of("4294967294-4294967295"));
}

TEST_F(NumberArgs, AWideRangeOverAWideArchiveTakesNoTime)
{
    open({1, 400000000});
    unsigned char *bits = nullptr;
    size_t size = 0;
    ASSERT_EQ(0, conv_argstr(job(), "2-399999999", &bits, &size));
    const HostPtr<unsigned char> owner(bits);
    ASSERT_EQ(50000000u, size);
    EXPECT_EQ(0xFE, bits[0]);
    EXPECT_EQ(0xFF, bits[1]);
    EXPECT_EQ(0xFF, bits[size - 2]);
    EXPECT_EQ(0x7F, bits[size - 1]);
}

TEST_F(NumberArgs, SingleBits)
{
    open({10, 29});
    unsigned char bits[3] = {};
    EXPECT_EQ(-1, id_to_bit(job(), bits, 3, 0));
    EXPECT_EQ(-1, id_to_bit(job(), bits, 3, 9));
    EXPECT_EQ(-1, id_to_bit(job(), bits, 3, 30));
    EXPECT_EQ(-1, id_to_bit(job(), bits, 2, 26)) << "its byte lies behind the set";
    EXPECT_EQ(0, id_to_bit(job(), bits, 3, 10));
    EXPECT_EQ(0, id_to_bit(job(), bits, 3, 29));
    EXPECT_EQ(0, id_to_bit(job(), bits, 3, 18));
    EXPECT_EQ(1, bits[0]);
    EXPECT_EQ(1, bits[1]);
    EXPECT_EQ(8, bits[2]);
    EXPECT_EQ(29u, bit_to_id(job(), 2, 3));
    EXPECT_TRUE(is_in_set(job(), bits, 3, 29));
    EXPECT_FALSE(is_in_set(job(), bits, 3, 28));
    EXPECT_FALSE(is_in_set(job(), bits, 2, 29));
    open({});
    EXPECT_EQ(-1, id_to_bit(job(), bits, 3, 10));
    EXPECT_EQ(0u, bit_to_id(job(), 2, 3));
}

TEST_F(NumberArgs, PositionsOfASummary)
{
    using Range = std::optional<std::pair<int, int>>;
    open({10, 12, 14, 20});
    EXPECT_EQ(Range({1, 4}), range_of("all"));
    EXPECT_EQ(Range({1, 4}), range_of("  ALLx"));
    EXPECT_EQ(Range({1, 4}), range_of("*"));
    EXPECT_EQ(Range({4, 4}), range_of("last:0"));
    EXPECT_EQ(Range({4, 4}), range_of("last:1"));
    EXPECT_EQ(Range({3, 4}), range_of("LAST: \t2"));
    EXPECT_EQ(Range({1, 4}), range_of("last:4"));
    EXPECT_EQ(Range({1, 4}), range_of("last:5"));
    EXPECT_EQ(Range({1, 4}), range_of("last:4294967295"));
    EXPECT_EQ(Range({2, 3}), range_of("12-14"));
    EXPECT_EQ(Range({2, 3}), range_of("14-12,99"));
    EXPECT_EQ(Range({2, 4}), range_of("13-15"));
    for (const char *text :
         {"", " ", "5", "5-", "-5", "x", "5x-6", "last:", "last:x", "5 -6", "5--6"})
        EXPECT_EQ(std::nullopt, range_of(text)) << text;
    open({});
    EXPECT_EQ(Range({0, 0}), range_of(""));
    EXPECT_EQ(Range({0, 0}), range_of("nonsense"));
}

TEST_F(NumberArgs, ListsForDisplay)
{
    EXPECT_EQ("1-4,7,9,10", shortened("1 2 3 4 7 9 10", 64));
    EXPECT_EQ("1-4,7,9,10", shortened("1 2 3 4 7 9 10", 11)) << "ten characters and their end";
    EXPECT_EQ("1 2 3 4 7 9 10", shortened("1 2 3 4 7 9 10", 10));
    EXPECT_EQ("", shortened("", 64));
    EXPECT_EQ("1", shortened("1", 2));
    EXPECT_EQ("1", shortened("1", 1));
    EXPECT_EQ("1", shortened("1", 0));
    EXPECT_EQ("4294967294,4294967295", shortened("4294967294 4294967295", 64));
    EXPECT_EQ("4294967295,0,1", shortened("4294967295 0 1", 64)) << "no run goes round";
}

/* -- against the slow way -- */

class AnyArgument : public NumberArgs
{
  protected:
    std::mt19937 random{4711};
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

    reference::Numbers numbers()
    {
        reference::Numbers found;
        uint32_t number = below(3) == 0 ? 4294967000u : below(30);
        for (uint32_t count = below(25); count > 0; --count) {
            number += 1 + (below(3) == 0 ? below(12) : 0);
            found.push_back(number);
        }
        return found;
    }
    std::string piece()
    {
        static const char *const pieces[] = {",", ",", "-",  "-",    " ",     "\t",    "all", "*",
                                             "0", "x", "\r", "\xa4", "last:", "LAST:", "ALL", "\n"};
        switch (below(4)) {
        case 0:
        case 1:
            return std::to_string(below(60));
        case 2:
            return below(3) == 0 ? std::to_string(4294967280u + below(40)) : " ";
        default:
            return pieces[below(sizeof(pieces) / sizeof(pieces[0]))];
        }
    }
    std::string argument()
    {
        std::string text;
        for (uint32_t pieces = below(9); pieces > 0; --pieces)
            text += piece();
        return text;
    }
};

TEST_F(AnyArgument, IsTakenAsTheSlowWayTakesIt)
{
    for (int round = 0; round < 40000; ++round) {
        const reference::Numbers archive = numbers();
        open(archive);
        const std::string raw = argument(), text = reference::correct(raw);
        ASSERT_EQ(text, corrected(raw)) << raw;
        const size_t size = below(4) == 0 ? below(24) : LINE_SIZE;
        ASSERT_EQ(reference::expand(archive, text, size), expanded(text, size)) << text;
        ASSERT_EQ(reference::named(archive, text), set_of(text)) << text;
        ASSERT_EQ(reference::positions(archive, text), range_of(text)) << text;
        ASSERT_EQ(reference::positions(archive, raw), range_of(raw)) << raw;
        const std::string all = reference::list_of(archive);
        const size_t shown = 1 + below(80);
        ASSERT_EQ(reference::shorten(archive, shown), shortened(all, shown)) << all;
    }
}

TEST_F(AnyArgument, EveryMessageOfASetIsWalkedOnceWithinTheLimits)
{
    for (int round = 0; round < 3000; ++round) {
        const reference::Numbers archive = numbers();
        open(archive);
        for (size_t i = 1; i <= archive.size(); ++i)
            index()[i].size = below(5) == 0 ? 3000 : below(900);
        job()->settings.size_limit = static_cast<int32_t>(below(3));
        const std::string text = argument();
        unsigned char *bits = nullptr;
        size_t size = 0;
        ASSERT_EQ(0, conv_argstr(job(), text.c_str(), &bits, &size));
        const HostPtr<unsigned char> owner(bits);

        std::string walked;
        char batch[NUMBER_LIST_SIZE];
        for (BatchWalk walk(job(), bits, size); walk.next(batch);) {
            walked += (walked.empty() ? "" : " ") + std::string(batch);
            int64_t total = 0;
            for (size_t i = 1; i <= archive.size(); ++i)
                if ((" " + std::string(batch) + " ")
                        .find(" " + std::to_string(archive[i - 1]) + " ") != std::string::npos)
                    total += index()[i].size;
            const bool alone = strchr(batch, ' ') == nullptr;
            EXPECT_TRUE(alone || job()->settings.size_limit == 0 ||
                        total <= job()->settings.size_limit * 1024);
        }
        reference::Numbers wanted;
        const std::set<uint32_t> set = reference::named(archive, text);
        for (const uint32_t number : archive)
            if (set.count(number) != 0) wanted.push_back(number);
        ASSERT_EQ(reference::list_of(wanted), walked) << text;
    }
}
