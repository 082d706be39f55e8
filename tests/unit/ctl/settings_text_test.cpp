#include "host/mlistctl/settings_text.h"

#include <gtest/gtest.h>

#include "host/mlistctl/failure.h"

static SettingValues defaults()
{
    return default_settings({Role::post, "mylist", "example.jp"});
}

TEST(SettingsText, OfANewListHasEveryKeyAndNoFault)
{
    std::string text = init_text(defaults());
    for (const char *key : {"cmd=", "subject=", "subjectf=", "vstrml=", "vstrc=", "precedence=",
                            "journal=", "time=", "replyedit=", "replyto=", "defstatus=", "confirm=",
                            "maxsummary=", "maxmsgsize=", "webpasswd="})
        EXPECT_NE(("\r\n" + text).find(std::string("\r\n") + key), std::string::npos) << key;
    EXPECT_EQ(init_faults(text), std::vector<std::string>());
}

TEST(SettingsText, TakesValuesThatAListUnderstands)
{
    for (const char *word :
         {"cmd=off on", "cmd=ON", "subject=NoEdit", "subjectf=", "subjectf=(%M=%S)", "vstrc=part",
          "journal=0", "time=7:30", "time=23:59", "replyedit=no", "replyto=", "defstatus=3"}) {
        SettingValues values = defaults();
        EXPECT_NO_THROW(apply_settings(values, {word})) << word;
        EXPECT_NE(init_text(values).find(std::string(word) + "\r\n"), std::string::npos) << word;
    }
}

TEST(SettingsText, RefusesWhatAListWouldMisread)
{
    const std::string long_value(64, 'x');
    for (const std::string &word : {std::string("journal"),
                                    std::string("journal="),
                                    std::string("journal=-1"),
                                    std::string("journal=5x"),
                                    std::string("journal=12345678901"),
                                    std::string("jurnal=5"),
                                    std::string("Journal=5"),
                                    std::string("cmd="),
                                    std::string("cmd=yes"),
                                    std::string("cmd=on on on on on on on on on on on"),
                                    std::string("subject=edited"),
                                    std::string("vstrml=grant deny"),
                                    std::string("vstrml=part"),
                                    std::string("time=730"),
                                    std::string("time=24:00"),
                                    std::string("time=7:60"),
                                    std::string("time=7:5"),
                                    std::string("defstatus=4"),
                                    std::string("subjectf=") + long_value,
                                    std::string("replyto=a\r\njournal=0"),
                                    std::string("webpasswd=a\nb")}) {
        SettingValues values = defaults();
        EXPECT_THROW(apply_settings(values, {word}), Failure) << word;
        EXPECT_EQ(values, defaults()) << word;
    }
}

TEST(SettingsText, TellsWhatTheOwnerDidNotMean)
{
    static const struct {
        const char *label, *text, *fault;
    } rows[] = {
        {"an absent keep count", "subjectf=x\r\nmaxsummary=5\r\n",
         "the key journal= is missing: the next posting empties the archive"},
        {"a blank before the key", " journal=5\n", "' journal=5' has text before its key"},
        {"a word that is none", "vstrml=maybe\n", "'vstrml=maybe' should hold grant or deny"},
        {"a comment", "# my list\n", "'# my list' is no setting and has no effect"},
        {"a time without a colon", "time=0730\n", "'time=0730' should hold hours and minutes"},
    };
    for (const auto &row : rows) {
        bool told = false;
        for (const std::string &fault : init_faults(row.text))
            told = told || fault.starts_with(row.fault);
        EXPECT_TRUE(told) << row.label;
    }
}
