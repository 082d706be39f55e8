/* libldapuse.so, through the library as the module links it. */
#include "ldapuse.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include "tests/unit/host/scratch.h"

namespace
{
class Ldapuse : public testing::Test
{
  protected:
    Ldapuse() { EXPECT_EQ(0, kyt_conf_set_directory(scratch_.path().c_str())); }
    ~Ldapuse() override { EXPECT_EQ(0, kyt_conf_set_directory(nullptr)); }

    void write_text(const char *kind, std::string_view text)
    {
        scratch_.write(std::string("lists/example.jp/alpha/") + kind, text);
    }

    struct Welcome {
        int result;
        std::string text;
    };
    static Welcome welcome(const char *domain = "example.jp", const char *list = "alpha")
    {
        char buffer[KYT_TEXT_SIZE + 1];
        memset(buffer, '~', sizeof(buffer));
        const int result = kyt_ml_welcomemsg_search(domain, list, buffer);
        EXPECT_EQ('~', buffer[KYT_TEXT_SIZE]);
        return {result, result == KYT_FOUND ? buffer : ""};
    }

    /* All help lines, as the module asks for them. */
    static std::vector<std::string> help(int *result_out = nullptr)
    {
        std::vector<std::string> lines;
        int32_t cursor = 0, more = 1;
        int result = KYT_FOUND;
        while (more != 0 && result == KYT_FOUND && lines.size() < 100'000) {
            char line[KYT_TEXT_SIZE];
            result = kyt_ml_helpmsg_search("example.jp", "alpha", &cursor, line, &more);
            if (result == KYT_FOUND) lines.emplace_back(line);
        }
        if (result_out != nullptr) *result_out = result;
        return lines;
    }

    Scratch scratch_;
};

TEST_F(Ldapuse, WithoutADirectoryNothingIsFound)
{
    EXPECT_EQ(0, kyt_conf_set_directory(""));
    EXPECT_EQ(KYT_FOUND, kyt_conf_init(0));
    EXPECT_EQ(KYT_NOT_FOUND, welcome().result);
    int result;
    EXPECT_TRUE(help(&result).empty());
    EXPECT_EQ(KYT_NOT_FOUND, result);
}

TEST_F(Ldapuse, MissingConfigurationIsNoError)
{
    EXPECT_EQ(KYT_FOUND, kyt_conf_init(0));
    int32_t level = 10;
    EXPECT_EQ(KYT_NOT_FOUND,
              kyt_smtp_servicesconf_search(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, &level));
    EXPECT_EQ(10, level);
}

TEST_F(Ldapuse, TooLongADirectoryIsRefused)
{
    EXPECT_EQ(-1, kyt_conf_set_directory(std::string(5000, 'x').c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(Ldapuse, ServiceConfigurationFillsWhatIsConfigured)
{
    scratch_.write("services.toml", "[smtp]\nlog_level = 5\nn1 = 25\nn9 = -3\nn4 = 99999999999\n"
                                    "text = \"hello\"\n");
    EXPECT_EQ(KYT_FOUND, kyt_conf_init(0));
    int32_t n[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9}, level = 10;
    char text[KYT_SERVICE_TEXT_SIZE] = "before";
    EXPECT_EQ(KYT_FOUND, kyt_smtp_servicesconf_search(&n[0], &n[1], &n[2], text, &n[3], &n[4],
                                                      &n[5], &n[6], &n[7], &n[8], &level));
    EXPECT_EQ(5, level);
    EXPECT_EQ(25, n[0]);
    EXPECT_EQ(2, n[1]);
    EXPECT_EQ(4, n[3]) << "out of range: left as it was";
    EXPECT_EQ(-3, n[8]);
    EXPECT_STREQ("hello", text);
}

TEST_F(Ldapuse, ServiceTextIsBounded)
{
    scratch_.write("services.toml", "[smtp]\ntext = \"" + std::string(1000, 'x') + "\"\n");
    char text[KYT_SERVICE_TEXT_SIZE + 1];
    text[KYT_SERVICE_TEXT_SIZE] = '~';
    EXPECT_EQ(KYT_FOUND,
              kyt_smtp_servicesconf_search(nullptr, nullptr, nullptr, text, nullptr, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::string(263, 'x'), text);
    EXPECT_EQ('~', text[KYT_SERVICE_TEXT_SIZE]);
}

TEST_F(Ldapuse, BrokenConfigurationIsAnError)
{
    scratch_.write("services.toml", "[smtp\nlog_level");
    EXPECT_EQ(KYT_ERROR, kyt_conf_init(0));
    int32_t level = 10;
    EXPECT_EQ(KYT_ERROR,
              kyt_smtp_servicesconf_search(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, &level));
    EXPECT_EQ(10, level);
}

TEST_F(Ldapuse, WelcomeTextComesWithMailLineEndsAndNoneAtItsEnd)
{
    static const struct {
        const char *label;
        std::string file, text;
    } rows[] = {
        {"Unix file", "one\ntwo\n", "one\r\ntwo"},
        {"mail line ends", "one\r\ntwo\r\n", "one\r\ntwo"},
        {"no end", "one", "one"},
        {"blank lines", "\n\none\n\n", "\r\n\r\none\r\n"},
        {"empty", "", ""},
        {"EUC-JP", "\xa4\xe8\xa4\xa6\n", "\xa4\xe8\xa4\xa6"},
        {"NUL", std::string("a\0b", 3), "ab"},
    };
    for (const auto &row : rows) {
        write_text("welcome", row.file);
        EXPECT_EQ(KYT_FOUND, welcome().result) << row.label;
        EXPECT_EQ(row.text, welcome().text) << row.label;
    }
}

TEST_F(Ldapuse, LongWelcomeTextIsCutBetweenCharacters)
{
    std::string text;
    for (int i = 0; i < 3000; i++)
        text += "\xa4\xa2";
    write_text("welcome", text);
    EXPECT_EQ(text.substr(0, 4094), welcome().text);
    write_text("welcome", "x" + text);
    EXPECT_EQ("x" + text.substr(0, 4094), welcome().text);
    write_text("welcome", "\x8f\xb0\xa1" + std::string("\x8e\xb1") + text);
    EXPECT_EQ(4095u, welcome().text.size());
}

TEST_F(Ldapuse, NamesThatLeadElsewhereAreNotFound)
{
    scratch_.write("welcome", "secret");
    scratch_.write("lists/welcome", "secret");
    scratch_.write("lists/example.jp/welcome", "secret");
    static const struct {
        const char *domain, *list;
    } rows[] = {
        {"example.jp", "."}, {"example.jp", ".."},          {"..", "."},       {"", ""},
        {"example.jp", ""},  {"example.jp", "../../lists"}, {".", "/"},        {"example.jp", "/"},
        {"..", ".."},        {"example.jp/..", "."},        {"", "example.jp"}};
    for (const auto &row : rows)
        EXPECT_EQ(KYT_NOT_FOUND, welcome(row.domain, row.list).result)
            << row.domain << " " << row.list;
    EXPECT_EQ(KYT_NOT_FOUND, welcome("example.jp", std::string(5000, 'x').c_str()).result);
}

TEST_F(Ldapuse, UnreadableTextIsAnErrorAndNeverAWait)
{
    std::filesystem::create_directories(scratch_.path("lists/example.jp/alpha/welcome"));
    EXPECT_EQ(KYT_ERROR, welcome().result);
    ASSERT_EQ(0, mkfifo(scratch_.path("lists/example.jp/alpha/help").c_str(), 0600));
    int result;
    help(&result);
    EXPECT_EQ(KYT_ERROR, result);
}

TEST_F(Ldapuse, HelpComesALineACall)
{
    write_text("help", "# help\r\n\n\xa4\xe8\nlast");
    int result;
    EXPECT_EQ((std::vector<std::string>{"# help", "", "\xa4\xe8", "last"}), help(&result));
    EXPECT_EQ(KYT_FOUND, result);
    write_text("help", "one\n");
    EXPECT_EQ(std::vector<std::string>{"one"}, help(&result));
    EXPECT_EQ(KYT_FOUND, result);
}

TEST_F(Ldapuse, EmptyHelpIsNotFound)
{
    write_text("help", "");
    int result;
    EXPECT_TRUE(help(&result).empty());
    EXPECT_EQ(KYT_NOT_FOUND, result);
}

TEST_F(Ldapuse, LongHelpLinesAreCutBetweenCharactersAndNothingIsLost)
{
    /* every length around the cut, every shift of the two-byte characters against it */
    for (size_t length = 1350; length < 1372; length++)
        for (size_t shift = 0; shift < 3; shift++) {
            std::string line(shift, 'x');
            while (line.size() + 2 <= length)
                line += "\xa4\xa2";
            write_text("help", line + "\r\nnext\r\n");
            const auto lines = help();
            std::string joined;
            for (size_t i = 0; i + 1 < lines.size(); i++) {
                joined += lines[i];
                const size_t high = lines[i].size() - (i == 0 ? shift : 0);
                EXPECT_EQ(0u, high % 2) << "a character was cut";
                EXPECT_LT(lines[i].size() * 3, static_cast<size_t>(KYT_TEXT_SIZE));
            }
            EXPECT_EQ(line, joined);
            EXPECT_EQ("next", lines.back());
        }
}

TEST_F(Ldapuse, BadArgumentsAreErrors)
{
    write_text("help", "x\n");
    char line[KYT_TEXT_SIZE];
    int32_t cursor = -1, more = 0;
    EXPECT_EQ(KYT_ERROR, kyt_ml_helpmsg_search("example.jp", "alpha", &cursor, line, &more));
    cursor = 1000;
    EXPECT_EQ(KYT_NOT_FOUND, kyt_ml_helpmsg_search("example.jp", "alpha", &cursor, line, &more));
    EXPECT_EQ(KYT_ERROR, kyt_ml_helpmsg_search(nullptr, "alpha", &cursor, line, &more));
    EXPECT_EQ(KYT_ERROR, kyt_ml_welcomemsg_search("example.jp", "alpha", nullptr));
}
} // namespace
