/* Reading of a list's settings file, "init": keys and raw values.  What they mean is in
   file_settings.cpp. */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <iterator>

#include "module/unix_sv.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/parsed_settings.h"
#include "store/str.h"

int32_t setting_number(const char *text)
{
    const long number = strtol(text, nullptr, 10);
    if (number < INT32_MIN) return INT32_MIN;
    if (number > INT32_MAX) return INT32_MAX;
    return static_cast<int32_t>(number);
}

/* -- values -- */

/* Where a key's value goes, and how it is read. */
typedef void (*StoreValue)(ParsedSettings *parsed, char *value, char **rest);

template <auto Slot> static void store_text(ParsedSettings *parsed, char *value, char **)
{
    strncpy_(parsed->*Slot, value, sizeof(parsed->*Slot));
}

template <int32_t ParsedSettings::*Slot>
static void store_number(ParsedSettings *parsed, char *value, char **)
{
    parsed->*Slot = setting_number(value);
}

/* KEPT: the words are taken with the same tokenizer state that the line is split with, so that
   words beyond the tenth come up again as a line of their own.
   Test: ReadMlinit.WordsBeyondTheTenthAreReadAsALine */
static void store_commands(ParsedSettings *parsed, char *value, char **rest)
{
    for (int i = 0; i < COMMAND_WORDS; ++i) {
        const char *word = strtok_r(i == 0 ? value : nullptr, " ", rest);
        if (word == nullptr) return;
        strncpy_(parsed->command[i], word, SETTING_WORD_SIZE);
    }
}

/* -- keys -- */

struct SettingKey {
    template <size_t Size>
    constexpr SettingKey(const char (&word)[Size], StoreValue to)
        : key(word), length(Size - 1), store(to)
    {
    }
    const char *key;
    size_t length;
    StoreValue store;
};

/* In the order in which a line is tested.  Each ends in the only equal sign that it has. */
static const SettingKey setting_keys[] = {
    {"cmd=", store_commands},
    {"subject=", store_text<&ParsedSettings::subject>},
    {"subjectf=", store_text<&ParsedSettings::subject_format>},
    {"vstrml=", store_text<&ParsedSettings::nonmember_posting>},
    {"vstrc=", store_text<&ParsedSettings::nonmember_commands>},
    {"precedence=", store_text<&ParsedSettings::precedence>},
    {"journal=", store_number<&ParsedSettings::journal>},
    {"time=", store_text<&ParsedSettings::digest_time>},
    {"replyedit=", store_text<&ParsedSettings::reply_to_mode>},
    {"replyto=", store_text<&ParsedSettings::reply_to>},
    {"defstatus=", store_number<&ParsedSettings::default_status>},
    {"confirm=", store_number<&ParsedSettings::confirmation>},
    {"maxsummary=", store_number<&ParsedSettings::summary_limit>},
    {"maxmsgsize=", store_number<&ParsedSettings::size_limit>},
    {"webpasswd=", store_text<&ParsedSettings::web_password>},
};

/* Whether the key ends behind the text's equal sign. */
static bool ends_key(const SettingKey &row, const char *text, const char *equal)
{
    if (static_cast<size_t>(equal + 1 - text) < row.length) return false;
    const char *start = equal + 1 - row.length;
    return *start == *row.key && memcmp(start, row.key, row.length) == 0;
}

/* KEPT: a key counts wherever it stands in the line, but its value is always taken as far from the
   line's start as the key is long.
   Test: ReadMlinit.AKeyInsideALineTakesItsValueFromTheWrongPlace */
static void parse_piece(ParsedSettings *parsed, char *piece, char **rest)
{
    chop(piece);
    const SettingKey *const none = std::end(setting_keys), *found = none;
    for (const char *equal = strchr(piece, '='); equal != nullptr; equal = strchr(equal + 1, '=')) {
        const SettingKey *row = setting_keys;
        while (row < found && !ends_key(*row, piece, equal))
            ++row;
        found = row;
    }
    if (found != none) found->store(parsed, piece + found->length, rest);
}

static void parse_line(ParsedSettings *parsed, char *line)
{
    char *rest = nullptr;
    for (char *piece = strtok_r(line, "\n", &rest); piece != nullptr;
         piece = strtok_r(nullptr, "\n", &rest))
        parse_piece(parsed, piece, &rest);
}

/* -- the file -- */

int read_mlinit(const char *list, const char *domain, ParsedSettings *parsed)
{
    char path[PATH_SIZE];
    if (list_path(path, g_path_mlist, domain, list, "init") < 0 || f_recover(path) < 0) {
        trace_sys(&g_logh, 1, 182, "mlname=%s read_mlinit recover error %m [%s]", list, path);
        return -1;
    }
    FileRecord *file = f_open(path, "r");
    if (file == nullptr) {
        trace_sys(&g_logh, 1, 183, "mlname=%s read_mliint f_open error %m [%s]", list, path);
        return -1;
    }
    char line[LINE_SIZE];
    while (Fgets(line, sizeof(line), file) != nullptr)
        parse_line(parsed, line);
    const bool failed = Ferror(file) != 0;
    if (failed)
        trace_sys(&g_logh, 11, 184, "mlname=%s read_mliint fgets error %m [%s]", list, path);
    (void)f_close(file); /* only read */
    return failed ? -1 : 0;
}
