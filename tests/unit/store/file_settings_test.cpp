/* The settings file: what its lines say, and what becomes of the defaults. */
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "store/file.h"
#include "store/parsed_settings.h"
#include "tests/unit/store/store_test.h"

typedef std::vector<std::string> Lines;

class SettingsTest : public StoreTest
{
  protected:
    int read() { return get_mlini("mylist", "example.jp", &settings_); }

    /* The settings of a file with these contents over the defaults. */
    ListSettings of(const std::string &contents)
    {
        list_.put("init", contents);
        default_settings(&settings_);
        EXPECT_EQ(0, read());
        return settings_;
    }

    int parse(const std::string &contents)
    {
        list_.put("init", contents);
        memset(&parsed_, 0, sizeof(parsed_));
        return read_mlinit("mylist", "example.jp", &parsed_);
    }

    TempList list_;
    ListSettings settings_ = {};
    ParsedSettings parsed_ = {};
};

class GetMlini : public SettingsTest
{
};
class ReadMlinit : public SettingsTest
{
};

/* One line for each field, for comparisons as a whole. */
static std::string text_of(const ListSettings &s)
{
    char text[1024];
    snprintf(text, sizeof(text), "0x%x %x %d %d %d %d %d %s %d %d %d %s|%s|%d %d %d %d",
             s.command_mask, s.nonmember_command_mask, s.subject_mode, s.summary_limit,
             s.nonmembers_may_post, s.reply_to_mode, s.confirmation, s.reply_to, s.precedence,
             s.journal, s.size_limit, s.web_password, s.subject_format, s.default_status,
             s.digest_time, s.size_word, s.count_word);
    return text;
}

TEST_F(GetMlini, TheDefaults)
{
    memset(&settings_, 0x55, sizeof(settings_));
    default_settings(&settings_);
    EXPECT_EQ("0x7ff 7ff 0 500 1 0 0  2 1000 0 |[%M:%S]|1 780 102400 1", text_of(settings_));
}

TEST_F(GetMlini, AnEmptyFileIsNotTheDefaults)
{
    EXPECT_EQ("0x7ff 7ff 0 0 1 0 0  2 0 0 ||1 780 102400 1", text_of(of("")));
}

TEST_F(GetMlini, AWholeFile)
{
    EXPECT_EQ("0x6fd 737 1 100 0 1 3 mylist@example.jp 1 50 2048 secret|[%M:%0S]|3 450 102400 1",
              text_of(of("cmd=on off on on on on on on off on\r\n"
                         "subject=noedit\r\nsubjectf=[%M:%0S]\r\nvstrml=deny\r\nvstrc=part\r\n"
                         "precedence=bulk\r\njournal=50\r\ntime=7:30\r\nreplyedit=change\r\n"
                         "replyto=mylist@example.jp\r\ndefstatus=3\r\nconfirm=3\r\n"
                         "maxsummary=100\r\nmaxmsgsize=2048\r\nwebpasswd=secret\r\n")));
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST_F(GetMlini, LinesMayEndInLineFeedAlone)
{
    const std::string settings = text_of(of("journal=50\r\nsubject=noedit\r\n"));
    EXPECT_EQ(settings, text_of(of("journal=50\nsubject=noedit\n")));
    EXPECT_EQ(settings, text_of(of("\n\n\r\njournal=50\n# a remark\nsubject=noedit")));
}

TEST_F(GetMlini, EnabledCommands)
{
    static const struct {
        const char *line;
        uint32_t mask;
    } rows[] = {
        {"cmd=on off", 2045},
        {"cmd=OFF", 2046},
        {"cmd=off  off", 2044}, /* blanks are one separator, however many */
        {"cmd=maybe off", 2045},
        {"cmd=", 2047},
        {"cmd=offf on", 2047},
        {"cmd=off off off off off off off off off off", 1024},
        {"cmd=off off off off off off off off off off off", 1024}, /* never "push" */
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.mask, of(row.line).command_mask) << row.line;
}

TEST_F(GetMlini, ADisabledCommandOfTheDefaultsIsEnabledByOn)
{
    list_.put("init", "cmd=on\r\n");
    default_settings(&settings_);
    settings_.command_mask = 0;
    EXPECT_EQ(0, read());
    EXPECT_EQ(1u, settings_.command_mask);
}

TEST_F(GetMlini, DigestTime)
{
    static const struct {
        const char *line;
        int minute;
    } rows[] = {
        {"time=7:30", 450},
        {"time=25:00", 60},
        {"time=0730", 780},
        {"time=", 780},
        {"time=:", 0},
        {"time=0:0", 0},
        {"time=23:59", 1439},
        {"time=24:00", 0},
        {"time= 7: 30", 450},
        {"time=-1:00", 1380},
        {"time=x:5", 5},
        {"time=7:30:99", 450},
        {"time=2147483647:59", 479},
        {"time=99999999999999999999:0", 420},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.minute, of(row.line).digest_time) << row.line;
}

/* Tables of one field each. */
struct NumberRow {
    const char *line;
    int value;
};
template <class Number, size_t Count>
static void expect_numbers(const std::function<ListSettings(const std::string &)> &read,
                           Number ListSettings::*field, const NumberRow (&rows)[Count])
{
    for (const NumberRow &row : rows)
        EXPECT_EQ(static_cast<Number>(row.value), read(row.line).*field) << row.line;
}

TEST_F(GetMlini, WordsAreComparedWholeAndWithoutCase)
{
    const auto read_line = [this](const std::string &line) { return of(line); };
    expect_numbers(read_line, &ListSettings::subject_mode,
                   {{"subject=edit", 0},
                    {"subject=NoEdit", 1},
                    {"subject=noedit ", 0},
                    {"subject=noeditnoeditnoeditnoedit", 0}});
    expect_numbers(read_line, &ListSettings::nonmembers_may_post,
                   {{"vstrml=deny", 0},
                    {"vstrml=DENY", 0},
                    {"vstrml=grant", 1},
                    {"vstrml=denyall", 1},
                    {"vstrml=", 1}});
    expect_numbers(read_line, &ListSettings::nonmember_command_mask,
                   {{"vstrc=grant", 2047},
                    {"vstrc=deny", 1024},
                    {"vstrc=part", 1847},
                    {"vstrc=Part", 1847},
                    {"vstrc=none", 2047}});
    expect_numbers(read_line, &ListSettings::precedence,
                   {{"precedence=junk", 0},
                    {"precedence=bulk", 1},
                    {"precedence=LIST", 2},
                    {"precedence=first", 2}});
}

TEST_F(GetMlini, ReplyToModeIsComparedByItsBeginning)
{
    const auto read_line = [this](const std::string &line) { return of(line); };
    expect_numbers(read_line, &ListSettings::reply_to_mode,
                   {{"replyedit=add", 0},
                    {"replyedit=changed", 1},
                    {"replyedit=CHANGE", 1},
                    {"replyedit=none", 2},
                    {"replyedit=No", 2},
                    {"replyedit=chang", 0},
                    {"replyedit=n", 0}});
}

TEST_F(GetMlini, Numbers)
{
    const auto read_line = [this](const std::string &line) { return of(line); };
    expect_numbers(read_line, &ListSettings::journal,
                   {{"journal=7", 7},
                    {"journal= 7x", 7},
                    {"journal=-3", -3},
                    {"journal=x", 0},
                    {"journal=99999999999", 2147483647},
                    {"journal=-99999999999", -2147483647 - 1},
                    {" journal=5", 0},
                    {"JOURNAL=5", 0}});
    expect_numbers(read_line, &ListSettings::default_status,
                   {{"defstatus=1", 1},
                    {"defstatus=2", 2},
                    {"defstatus=3", 3},
                    {"defstatus=4", 1},
                    {"defstatus=0", 1},
                    {"defstatus=-1", 1}});
    expect_numbers(read_line, &ListSettings::confirmation, {{"confirm=30000", 30000}});
    expect_numbers(read_line, &ListSettings::summary_limit, {{"maxsummary=20", 20}});
    expect_numbers(read_line, &ListSettings::size_limit, {{"maxmsgsize=1", 1}});
}

TEST_F(GetMlini, TextsApplyWhenTheyFit)
{
    const auto with = [](const char *key, size_t size) { return key + std::string(size, 'x'); };
    EXPECT_EQ(std::string(63, 'x'), of(with("subjectf=", 63)).subject_format);
    EXPECT_STREQ("[%M:%S]", of(with("subjectf=", 64)).subject_format);
    EXPECT_EQ(std::string(127, 'x'), of(with("replyto=", 127)).reply_to);
    EXPECT_STREQ("", of(with("replyto=", 128)).reply_to);
    EXPECT_EQ(std::string(67, 'x'), of(with("webpasswd=", 67)).web_password);
    EXPECT_STREQ("", of(with("webpasswd=", 68)).web_password);
    EXPECT_STREQ("[%M:%S]", of(with("subjectf=", 4000)).subject_format);
}

TEST_F(GetMlini, TheLastOfSeveralLinesCounts)
{
    const ListSettings settings =
        of("journal=1\r\nsubject=noedit\r\njournal=2\r\nsubject=edit\r\n");
    EXPECT_EQ(2, settings.journal);
    EXPECT_EQ(SUBJECT_EDIT, settings.subject_mode);
}

/* -- lines -- */

TEST_F(ReadMlinit, AKeyInsideALineTakesItsValueFromTheWrongPlace)
{
    EXPECT_EQ(0, parse("xsubject=noedit\r\n"));
    EXPECT_STREQ("=noedit", parsed_.subject);
    EXPECT_EQ(SUBJECT_EDIT, of("xsubject=noedit\r\n").subject_mode);
}

TEST_F(ReadMlinit, TheFirstKeyOfTheTableWins)
{
    EXPECT_EQ(0, parse("webpasswd=cmd=on\r\n"));
    EXPECT_STREQ("", parsed_.web_password);
    EXPECT_STREQ("asswd=cmd=on", parsed_.command[0]);
}

TEST_F(ReadMlinit, WordsBeyondTheTenthAreReadAsALine)
{
    EXPECT_EQ(0, parse("cmd=1 2 3 4 5 6 7 8 9 10 journal=42 or so\r\nmaxsummary=7\r\n"));
    EXPECT_STREQ("1", parsed_.command[0]);
    EXPECT_STREQ("10", parsed_.command[9]);
    EXPECT_EQ(42, parsed_.journal);
    EXPECT_EQ(7, parsed_.summary_limit);
    EXPECT_EQ(0, parse("cmd=1 2 3 4 5 6 7 8 9 10 cmd=11 12\r\n"));
    EXPECT_STREQ("11", parsed_.command[0]);
    EXPECT_STREQ("12", parsed_.command[1]);
    EXPECT_STREQ("3", parsed_.command[2]);
}

TEST_F(ReadMlinit, AValueKeepsItsBlanks)
{
    EXPECT_EQ(0, parse("subjectf= [%M %S] \r\nreplyto=\r\n"));
    EXPECT_STREQ(" [%M %S] ", parsed_.subject_format);
    EXPECT_STREQ("", parsed_.reply_to);
}

TEST_F(ReadMlinit, ACarriageReturnEndsALine)
{
    EXPECT_EQ(0, parse("subjectf=one\rjournal=5\r\n"));
    EXPECT_STREQ("one", parsed_.subject_format);
    EXPECT_EQ(0, parsed_.journal);
}

TEST_F(ReadMlinit, ALineBeyondTheBufferIsReadInPieces)
{
    EXPECT_EQ(0, parse("subjectf=" + std::string(4095 - 9, 'x') + "journal=5\r\n"));
    EXPECT_EQ(4095u - 9u, strlen(parsed_.subject_format));
    EXPECT_EQ(5, parsed_.journal);
}

TEST_F(ReadMlinit, HostileBytesAreHarmless)
{
    std::string contents;
    uint32_t state = 7;
    for (int i = 0; i < 100000; ++i) {
        state = state * 1664525u + 1013904223u;
        static const char *const pieces[] = {"cmd=", "=",  "time=", ":", " ",    "\n",
                                             "\r",   "\t", "on",    "9", "\xFF", "replyedit="};
        contents += pieces[(state >> 16) % 12];
        if ((state >> 8) % 1000 == 0) contents += '\0';
    }
    EXPECT_EQ(0, parse(contents));
}

/* -- failures -- */

TEST_F(GetMlini, AMissingFileLeavesTheSettingsAndIsLogged)
{
    default_settings(&settings_);
    const std::string defaults = text_of(settings_);
    EXPECT_EQ(-1, read());
    EXPECT_EQ(defaults, text_of(settings_));
    EXPECT_EQ((Lines{"1/183 mlname=mylist read_mliint f_open error No such file or directory [" +
                         list_.control("init") + "]",
                     "1/141 kyt_ml_mlini_search  errval = ffffffff do=example.jp ml=mylist"}),
              take_log_lines());
    EXPECT_EQ(0, result_code());
}

TEST_F(GetMlini, AFailedRecoveryIsLogged)
{
    ASSERT_EQ(0, mkdir(list_.control("init.new").c_str(), 0700));
    EXPECT_EQ(-1, read());
    EXPECT_EQ((Lines{"5/288 .new detected [" + list_.control("init.new") + "]",
                     "3/291 recover2 error (Is a directory)",
                     "1/182 mlname=mylist read_mlinit recover error Is a directory [" +
                         list_.control("init") + "]",
                     "1/141 kyt_ml_mlini_search  errval = ffffffff do=example.jp ml=mylist"}),
              take_log_lines());
    EXPECT_TRUE(reply().starts_with("475 f_reover disk full "));
    EXPECT_EQ(75, result_code());
}

TEST_F(GetMlini, AReadErrorLeavesTheSettingsAndIsLogged)
{
    ASSERT_EQ(0, mkdir(list_.control("init").c_str(), 0700));
    default_settings(&settings_);
    const std::string defaults = text_of(settings_);
    EXPECT_EQ(-1, read());
    EXPECT_EQ(defaults, text_of(settings_));
    EXPECT_TRUE(logged(184, "mlname=mylist read_mliint fgets error Is a directory [" +
                                list_.control("init") + "]"));
    bool at_trace_level = false;
    for (const LogLine &line : take_log())
        at_trace_level |= line.msgno == 184 && line.level == 11;
    EXPECT_TRUE(at_trace_level);
}

TEST_F(GetMlini, APathThatDoesNotFitIsAFailedRead)
{
    const std::string domain(1000, 'd');
    EXPECT_EQ(-1, get_mlini("mylist", domain.c_str(), &settings_));
    EXPECT_TRUE(logged(182, "mlname=mylist read_mlinit recover error File name too long []"));
}

TEST_F(GetMlini, ACommittedReplacementIsFinishedFirst)
{
    list_.put("init.new", "journal=2\r\n");
    list_.put("init.old", "journal=1\r\n");
    EXPECT_EQ(2, of("journal=1\r\n").journal);
    EXPECT_EQ("journal=2\r\n", list_.get("init"));
}
