/* Confirmation ids, and the expiry test by itself. */
#include "tests/support/local_time.h"
#include "tests/unit/store/confirm_test.h"

/* -- the expiry test by itself -- */

TEST(ConfirmExpiry, ComparesFieldByFieldFromTheYearDown)
{
    struct tm now = {};
    now.tm_year = 126;
    now.tm_mon = 10;
    now.tm_mday = 18;
    now.tm_hour = 9;
    now.tm_min = 24;
    static const struct {
        const char *text;
        bool good;
    } rows[] = {
        {"0126/10/18:09:24 X", true},
        {"0126/10/18:09:25 X", true},
        {"0126/10/18:09:23 X", false},
        {"0126/10/18:10:00 X", true},
        {"0126/10/18:08:59 X", false},
        {"0126/10/19:00:00 X", true},
        {"0126/10/17:23:59 X", false},
        {"0126/11/01:00:00 X", true},
        {"0126/09/30:23:59 X", false},
        {"0127/00/01:00:00 X", true},
        {"0125/11/31:23:59 X", false},
        {"2026/10/18:09:24 X", true},
        {"126/10/18:9:24 X", true},
        {"0126/10/18:09:24  ", true},
        {"99999999999999999999/0/0:0:0 X", true},
        {"0126/10/18:09:24 \xff", true},
        {"0126/10/18:09:24 \x7f", false},
        {"0126/10/18:09:24 \t", false},
        {"0126/10/18:09:24 \r\n", false},
        {"0126/10/18:09:24 ", false},
        {"0126/10/18:09:24X", false},
        {"0126/10/18:09:24\tX", false},
        {"0126/10/18:09 X", false},
        {"0126-10/18:09:24 X", false},
        {"0126/10:18:09:24 X", false},
        {"/10/18:09:24 X", false},
        {" 0127/10/18:09:24 X", false},
        {"+127/10/18:09:24 X", false},
        {"-127/10/18:09:24 X", false},
        {"0127/10/18:09: X", false},
        {"", false},
        {"0127", false},
    };
    for (const auto &row : rows) {
        const char *found = validcnfrm(&now, row.text);
        EXPECT_EQ(row.good, found != nullptr) << row.text;
        EXPECT_TRUE(found == nullptr || found == strchr(row.text, ' ') + 1) << row.text;
    }
}

/* -- ids -- */

/* What the two draws of rand() give. */
static std::string id_of_second(unsigned second)
{
    srand(second);
    std::string wanted;
    for (int draw = 0; draw < 2; ++draw) {
        const unsigned value = static_cast<unsigned>(rand());
        char text[9];
        snprintf(text, sizeof(text), "%02X%02X%02X%02X", value & 0xFF, value >> 8 & 0xFF,
                 value >> 16 & 0xFF, value >> 24 & 0xFF);
        wanted += text;
    }
    return wanted;
}

TEST(ConfirmId, IsThatOfTheCLibrarysGeneratorForEverySecond)
{
    TempList list;
    FaultOs clock;
    for (unsigned second = 0; second <= 59; ++second) {
        clock.now = 1794700800 + second;
        char buffer[CONFIRM_ID_SIZE + 1];
        memset(buffer, '#', sizeof(buffer));
        EXPECT_EQ(buffer, mkcnfrm(buffer));
        EXPECT_EQ(id_of_second(second), buffer);
        EXPECT_EQ('#', buffer[CONFIRM_ID_SIZE]);
        clock.now += 86400 * 17 + 60 * 7;
        char later[CONFIRM_ID_SIZE];
        EXPECT_STREQ(buffer, mkcnfrm(later)) << "the minute does not matter";
    }
}

TEST(ConfirmId, ALeapSecondHasAnIdToo)
{
    /* A time zone of one leap second, at the end of June 1972. */
    static const char zone[] = "TZif\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0" /* version, unused */
                               "\0\0\0\0\0\0\0\0\0\0\0\1"             /* one leap second */
                               "\0\0\0\0\0\0\0\1\0\0\0\4"             /* one type, 4 letters */
                               "\0\0\0\0\0\0UTC\0"
                               "\x04\xb2\x58\x00\0\0\0\1";
    TempDir directory;
    write_file(directory / "zone", std::string(zone, sizeof(zone) - 1));
    setenv("TZ", (":" + directory / "zone").c_str(), 1);
    tzset();
    FaultOs clock;
    clock.now = 78796800;
    struct tm leap;
    ASSERT_EQ(0, getnewtime(&leap, 0));
    ASSERT_EQ(60, leap.tm_sec);
    char buffer[CONFIRM_ID_SIZE];
    EXPECT_EQ(id_of_second(60), mkcnfrm(buffer));
    set_zone("Asia/Tokyo");
}

TEST(ConfirmId, LeavesTheHostsGeneratorAlone)
{
    srand(4711);
    const int wanted = rand();
    srand(4711);
    char buffer[CONFIRM_ID_SIZE];
    (void)mkcnfrm(buffer);
    EXPECT_EQ(wanted, rand());
}
