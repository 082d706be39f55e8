/* The settings of a list: the values of its "init" file laid over the defaults. */
#include <stdint.h>
#include <string.h>

#include "module/unix_sv.h"
#include "store/file.h"
#include "store/parsed_settings.h"
#include "store/str.h"

#define MINUTES_OF_A_DAY 1440

void default_settings(ListSettings *settings)
{
    *settings = ListSettings{
        .command_mask = ALL_COMMANDS,
        .subject_mode = SUBJECT_EDIT,
        .precedence = PRECEDENCE_LIST,
        .journal = 1000,
        .nonmember_command_mask = ALL_COMMANDS,
        .summary_limit = 500,
        .size_word = 102400,
        .count_word = 1,
        .digest_time = 13 * 60,
        .subject_format = "[%M:%S]",
        .reply_to = "",
        .nonmembers_may_post = 1,
        .default_status = MEMBER_ON,
        .reply_to_mode = REPLYEDIT_ADD,
        .confirmation = 0,
        .size_limit = 0,
        .web_password = "",
    };
}

/* -- words -- */

/* A word of the file and the number that it stands for; tables end with a null word. */
struct WordValue {
    const char *word;
    int32_t value;
};

static const WordValue subject_words[] = {
    {"edit", SUBJECT_EDIT}, {"noedit", SUBJECT_NOEDIT}, {nullptr, 0}};

static const WordValue posting_words[] = {{"grant", 1}, {"deny", 0}, {nullptr, 0}};

static const WordValue precedence_words[] = {
    {"junk", PRECEDENCE_JUNK}, {"bulk", PRECEDENCE_BULK}, {"list", PRECEDENCE_LIST}, {nullptr, 0}};

/* The commands that tell about members and their mail. */
#define TELLING_COMMANDS                                                                           \
    (COMMAND_BIT(COMMAND_MEMBER) | COMMAND_BIT(COMMAND_SUMMARY) | COMMAND_BIT(COMMAND_GET))

static const WordValue nonmember_command_words[] = {{"grant", ALL_COMMANDS},
                                                    {"deny", COMMAND_BIT(COMMAND_PUSH)},
                                                    {"part", ALL_COMMANDS & ~TELLING_COMMANDS},
                                                    {nullptr, 0}};

static const WordValue reply_to_words[] = {
    {"add", REPLYEDIT_ADD}, {"change", REPLYEDIT_CHANGE}, {"no", REPLYEDIT_NO}, {nullptr, 0}};

/* Leaves the setting as it is when the table does not have the word. */
template <class Number>
static void apply_word(Number *setting, const WordValue *words, const char *text,
                       bool (*matches)(const char *text, const char *word) = same_text_nocase)
{
    for (; words->word != nullptr; ++words) {
        if (!matches(text, words->word)) continue;
        *setting = static_cast<Number>(words->value);
        return;
    }
}

/* "push", the last command, has no word. */
static void apply_commands(ListSettings *settings, const ParsedSettings *parsed)
{
    for (int i = 0; i < COMMAND_WORDS; ++i) {
        if (same_text_nocase(parsed->command[i], "on"))
            settings->command_mask |= COMMAND_BIT(i);
        else if (same_text_nocase(parsed->command[i], "off"))
            settings->command_mask &= ~COMMAND_BIT(i);
    }
}

/* -- other values -- */

static void apply_digest_time(ListSettings *settings, const char *text)
{
    const char *colon = strchr(text, ':');
    if (colon == nullptr) return;
    const int64_t minutes = int64_t{setting_number(text)} * 60 + setting_number(colon + 1);
    const int64_t of_the_day = minutes % MINUTES_OF_A_DAY;
    settings->digest_time =
        static_cast<int32_t>(of_the_day < 0 ? of_the_day + MINUTES_OF_A_DAY : of_the_day);
}

/* KEPT: an absent key replaces the text by the empty one; a text that does not fit leaves it.
   Test: GetMlini.AnEmptyFileIsNotTheDefaults */
template <size_t Size> static void apply_text(char (&setting)[Size], const char *text)
{
    const size_t length = strlen(text);
    if (length < Size) memcpy(setting, text, length + 1);
}

static void apply_status(ListSettings *settings, int32_t status)
{
    if (status >= MEMBER_ON && status <= MEMBER_DIGEST) settings->default_status = status;
}

int get_mlini(const char *list, const char *domain, ListSettings *settings)
{
    ParsedSettings parsed = {};
    const int result = read_mlinit(list, domain, &parsed);
    if (result < 0) {
        trace_sys(&g_logh, 1, 141, "kyt_ml_mlini_search  errval = %x do=%s ml=%s",
                  static_cast<unsigned>(result), domain, list);
        return -1;
    }
    apply_commands(settings, &parsed);
    apply_word(&settings->subject_mode, subject_words, parsed.subject);
    apply_word(&settings->precedence, precedence_words, parsed.precedence);
    /* KEPT: an absent number is 0, not the default, here and below.
       Test: GetMlini.AnEmptyFileIsNotTheDefaults */
    settings->journal = parsed.journal;
    apply_word(&settings->nonmembers_may_post, posting_words, parsed.nonmember_posting);
    apply_word(&settings->nonmember_command_mask, nonmember_command_words,
               parsed.nonmember_commands);
    settings->summary_limit = parsed.summary_limit;
    apply_digest_time(settings, parsed.digest_time);
    apply_text(settings->subject_format, parsed.subject_format);
    apply_text(settings->reply_to, parsed.reply_to);
    apply_status(settings, parsed.default_status);
    apply_word(&settings->reply_to_mode, reply_to_words, parsed.reply_to_mode, begins_nocase);
    settings->confirmation = parsed.confirmation;
    settings->size_limit = parsed.size_limit;
    apply_text(settings->web_password, parsed.web_password);
    return 0;
}
