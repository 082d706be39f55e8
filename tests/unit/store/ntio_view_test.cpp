#include "store/ntio_view.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

namespace
{
std::vector<std::string> by_fgets(const std::string &path)
{
    std::vector<std::string> pieces;
    FileRecord *file = f_open(path.c_str(), "r");
    char line[VIEW_LINE_SIZE];
    while (Fgets(line, sizeof(line), file) != nullptr)
        pieces.push_back(line);
    EXPECT_EQ(0, Ferror(file));
    f_close(file);
    return pieces;
}

struct Viewed {
    std::vector<std::string> pieces; /* as handed out */
    std::string bytes;               /* as they must be in the file */
};

Viewed by_view(const std::string &path)
{
    Viewed viewed;
    FileRecord *file = f_open(path.c_str(), "r");
    char joined[VIEW_LINE_SIZE], text[VIEW_LINE_SIZE];
    LineView view;
    int got;
    while ((got = Fview(&view, joined, file)) > 0) {
        copy_view(text, view);
        viewed.pieces.push_back(text);
        EXPECT_EQ(view.ended, view.end_size > 0);
        EXPECT_EQ(viewed.pieces.back().ends_with("\n"), ends_line(view));
        viewed.bytes.append(view.text, view.size);
        if (view.ended) viewed.bytes += view.end_size == 2 ? "\r\n" : "\n";
    }
    EXPECT_EQ(0, got);
    EXPECT_EQ(0, Fview(&view, joined, file)) << "the end stays the end";
    f_close(file);
    return viewed;
}

void compare(const TempDir &dir, const std::string &content, const std::string &label)
{
    const std::string path = dir / "file";
    write_file(path, content);
    const Viewed viewed = by_view(path);
    EXPECT_TRUE(by_fgets(path) == viewed.pieces) << label;
    const bool all_is_read = content.find('\0') == std::string::npos;
    EXPECT_TRUE(!all_is_read || content == viewed.bytes) << label;
}

TEST(NtioView, ShortFilesAreSeenAsFgetsHandsThemOut)
{
    TempDir dir;
    const std::string contents[] = {"",         "a",          "\n",          "\r\n",   "\r",
                                    "a\n",      "a\r\n",      "a\r\nb",      "a\nb\n", "\r\r\n",
                                    "a\r\rb\n", "\n\n\r\n\n", "a\rb\r\nc\r", "a b\r\n"};
    for (const std::string &content : contents)
        compare(dir, content, content);
}

TEST(NtioView, EveryLineLengthAroundTheLimitAndTheBlockBorder)
{
    TempDir dir;
    for (const char *end : {"\n", "\r\n", "\r\r\n"})
        for (size_t length = 4080; length < 4105; ++length)
            for (const size_t before : {size_t{0}, size_t{100}, 8176 - length + 4090 - 4080})
                compare(dir,
                        std::string(before, 'x') + "\n" + std::string(length, 'y') + end + "z" +
                            end,
                        std::to_string(length) + " " + std::to_string(before));
    for (size_t length = 8160; length < 8190; ++length)
        for (const char *end : {"\n", "\r\n", "\r\r\n"})
            compare(dir,
                    std::string(length - 50, 'x') + "\n" + std::string(48, 'y') + end + "z\r\n",
                    std::to_string(length));
}

TEST(NtioView, RandomFilesAreSeenAsFgetsHandsThemOut)
{
    TempDir dir;
    std::mt19937 random(20261115);
    for (int round = 0; round < 400; ++round) {
        std::string content;
        const int longest = round % 4 == 0 ? 5000 : 200;
        while (content.size() < 20000) {
            content += std::string(random() % static_cast<unsigned>(longest), 'a');
            const char *const ends[] = {"\n", "\r\n", "\r\n", "\r", "\r\r\n", " "};
            content += ends[random() % 6];
            if (round % 8 == 7 && random() % 100 == 0) content.push_back('\0');
        }
        compare(dir, content, std::to_string(round));
    }
}

TEST(NtioView, ACarriageReturnAtTheEndOfABlockIsKnown)
{
    TempDir dir;
    write_file(dir / "file", std::string(8175, 'x').replace(4000, 1, "\n") + "\r\nnext\r\n");
    FileRecord *file = f_open((dir / "file").c_str(), "r");
    char joined[VIEW_LINE_SIZE];
    LineView view;
    EXPECT_EQ(1, Fview(&view, joined, file));
    EXPECT_FALSE(view.split_end);
    while (Fview(&view, joined, file) == 1 && !view.ended) {
    }
    EXPECT_TRUE(view.split_end);
    EXPECT_EQ('\r', view.text[view.size - 1]);
    EXPECT_EQ(1, Fview(&view, joined, file));
    EXPECT_FALSE(view.split_end);
    EXPECT_EQ("next", std::string(view.text, view.size));
    f_close(file);
}

TEST(NtioView, AReadErrorIsMinusOne)
{
    TempDir dir;
    write_file(dir / "file", std::string(3000, 'x') + "\n" + std::string(6000, 'y') + "\n");
    FileRecord *file = f_open((dir / "file").c_str(), "r");
    char joined[VIEW_LINE_SIZE];
    LineView view;
    EXPECT_EQ(1, Fview(&view, joined, file));
    EXPECT_EQ(1, Fview(&view, joined, file));
    FaultOs faults;
    faults.before = [](const std::string &call, const std::string &) {
        return call == "read" ? EIO : 0;
    };
    EXPECT_EQ(-1, Fview(&view, joined, file));
    EXPECT_EQ(EIO, errno);
    f_close(file);
    EXPECT_TRUE(logged(705, "ReadFile error 5"));
    (void)take_log();
}
} // namespace
