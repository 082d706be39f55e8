/* The host's local configuration file. */
#include <gtest/gtest.h>

#include "module/module_vars.h"
#include "tests/support/temp_list.h"

class LocalConf : public ::testing::Test
{
  protected:
    std::vector<int32_t> read(const std::string &text)
    {
        const std::string file = dir / "local.conf";
        write_file(file, text);
        local_conf_path = file.c_str();
        std::vector<int32_t> values(12, -7);
        local_conf2(values.data());
        return values;
    }
    TempDir dir;
};

TEST_F(LocalConf, HoldsTwelveNumbersInOrder)
{
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}),
              read("smtp_port=1\npop_port=2\npops_port=3\nimap_port=4\nimaps_port=5\n"
                   "http_port=6\nhttps_port=7\nforce_auth=8\nml_resent_header=9\n"
                   "ml_remove_bracket=10\nml_maxmsgsize=11\nml_webpasswd=12"));
}

TEST_F(LocalConf, IsAllZeroWithoutAFile)
{
    local_conf_path = "/nonexistent/local.conf";
    std::vector<int32_t> values(12, -7);
    local_conf2(values.data());
    EXPECT_EQ(std::vector<int32_t>(12, 0), values);
    local_conf2(nullptr);
}

static const struct {
    const char *label, *text;
    int32_t maxmsgsize;
} rows[] = {
    {"a key in capitals counts", "ML_MAXMSGSIZE=1\n", 1},
    {"a blank before the key hides it", " ml_maxmsgsize=1\n", 0},
    {"a blank before the equals sign hides it", "ml_maxmsgsize =1\n", 0},
    {"a word is no number", "ml_maxmsgsize=yes\n", 0},
    {"the later line wins", "ml_maxmsgsize=1\nml_maxmsgsize=2\n", 2},
    {"blanks before the number and text behind it are ignored", "ml_maxmsgsize=  3 x\r\n", 3},
    {"a sign counts", "ml_maxmsgsize=-4\n", -4},
    {"a huge number is the largest one", "ml_maxmsgsize=99999999999999999999\n", INT32_MAX},
    {"there are no comments", "#ml_maxmsgsize=1\n", 0},
};

TEST_F(LocalConf, IsReadLineByLine)
{
    for (const auto &row : rows)
        EXPECT_EQ(row.maxmsgsize, read(row.text)[10]) << row.label;
}

TEST_F(LocalConf, ALongLineIsReadInPiecesOf127Characters)
{
    EXPECT_EQ(5, read(std::string(127, 'x') + "ml_maxmsgsize=5\n")[10]);
    EXPECT_EQ(0, read(std::string(126, 'x') + "ml_maxmsgsize=5\n")[10]);
}
