#include "host/mlistctl/settings_text.h"

#include <algorithm>
#include <optional>

#include "host/base/text.h"
#include "host/mlistctl/failure.h"

static bool is_number(std::string_view text)
{
    return !text.empty() && text.size() <= 9 &&
           std::all_of(text.begin(), text.end(),
                       [](char byte) { return byte >= '0' && byte <= '9'; });
}

static bool is_one_of(std::string_view value, std::string_view words)
{
    std::string padded = " " + std::string(words) + " ";
    return !value.empty() && value.find(' ') == std::string_view::npos &&
           padded.find(" " + lower(value) + " ") != std::string::npos;
}

static bool is_command_words(std::string_view value, std::string_view words)
{
    size_t count = 0;
    while (!value.empty()) {
        size_t end = std::min(value.find(' '), value.size());
        if (!is_one_of(value.substr(0, end), words) || ++count > 10) return false;
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return count > 0;
}

static bool is_time(std::string_view value, std::string_view)
{
    size_t colon = value.find(':');
    if (colon > 2 /* or nowhere */ || value.size() - colon - 1 != 2 ||
        !is_number(value.substr(0, colon)) || !is_number(value.substr(colon + 1)))
        return false;
    return std::stoi(std::string(value.substr(0, colon))) < 24 &&
           std::stoi(std::string(value.substr(colon + 1))) < 60;
}

static bool is_any_number(std::string_view value, std::string_view)
{
    return is_number(value);
}

/* Text values have a limit of their own, given as digits. */
static bool is_text(std::string_view value, std::string_view limit)
{
    return value.size() < std::stoul(std::string(limit)) &&
           std::none_of(value.begin(), value.end(), [](char byte) { return is_control(byte); });
}

struct SettingRow {
    const char *key;
    const char *value; /* of a new list; null: the list's address */
    bool (*fits)(std::string_view value, std::string_view argument);
    const char *argument;
    const char *meaning;      /* what may stand there, for a message */
    const char *when_missing; /* what a list without the key does; null: what one would expect */
};

/* A new list asks for confirmation: without it anybody can subscribe anybody. */
static constexpr SettingRow setting_rows[] = {
    {"cmd", "on on on on on on on on on on", is_command_words, "on off",
     "up to ten words on or off", nullptr},
    {"subject", "edit", is_one_of, "edit noedit", "edit or noedit", nullptr},
    {"subjectf", "[%M:%S]", is_text, "64", "at most 63 characters",
     "postings get an empty subject tag"},
    {"vstrml", "grant", is_one_of, "grant deny", "grant or deny", nullptr},
    {"vstrc", "part", is_one_of, "grant deny part", "grant, deny or part", nullptr},
    {"precedence", "list", is_one_of, "junk bulk list", "junk, bulk or list", nullptr},
    {"journal", "1000", is_any_number, "", "the number of messages that the archive keeps",
     "the next posting empties the archive"},
    {"time", "13:00", is_time, "", "hours and minutes, as 7:30", nullptr},
    {"replyedit", "add", is_one_of, "add change no", "add, change or no", nullptr},
    {"replyto", nullptr, is_text, "128", "an address of at most 127 characters", nullptr},
    {"defstatus", "1", is_one_of, "1 2 3", "1 (on), 2 (off) or 3 (digest)", nullptr},
    {"confirm", "3", is_any_number, "", "days, 0 for no confirmation", nullptr},
    {"maxsummary", "500", is_any_number, "", "a number of messages",
     "a summary shows one message at most"},
    {"maxmsgsize", "10240", is_any_number, "", "kilobytes, 0 for no limit", nullptr},
    {"webpasswd", "", is_text, "68", "at most 67 characters", nullptr},
};

static const SettingRow *row_of(std::string_view key)
{
    for (const SettingRow &row : setting_rows)
        if (key == row.key) return &row;
    return nullptr;
}

SettingValues default_settings(const ListAddress &address)
{
    SettingValues values;
    for (const SettingRow &row : setting_rows)
        values.emplace_back(row.key, row.value ? row.value : address.name());
    return values;
}

void apply_settings(SettingValues &values, const std::vector<std::string> &words)
{
    for (const std::string &word : words) {
        size_t equals = word.find('=');
        std::string key = word.substr(0, equals);
        const SettingRow *row = row_of(key);
        if (equals == std::string::npos || row == nullptr)
            throw Failure{CTL_USAGE, "there is no list setting '" + key + "'",
                          "write --set KEY=VALUE with a key that \"list show\" prints"};
        std::string value = word.substr(equals + 1);
        if (!row->fits(value, row->argument))
            throw Failure{CTL_USAGE, "'" + value + "' does not fit the setting " + key,
                          std::string("it takes ") + row->meaning};
        for (auto &[name, current] : values)
            if (name == key) current = value;
    }
}

std::string init_text(const SettingValues &values)
{
    std::string text;
    for (const auto &[key, value] : values)
        text += key + "=" + value + "\r\n";
    return text;
}

/* The line's key as a list reads it: the first of the table that occurs anywhere in the line. */
static const SettingRow *key_in_line(std::string_view line, size_t &position_out)
{
    for (const SettingRow &row : setting_rows) {
        position_out = line.find(std::string(row.key) + "=");
        if (position_out != std::string_view::npos) return &row;
    }
    return nullptr;
}

static std::optional<std::string> line_fault(std::string_view line, std::vector<bool> &seen)
{
    size_t position = 0;
    const SettingRow *row = key_in_line(line, position);
    std::string shown = "'" + std::string(line.substr(0, 60)) + "'";
    if (row == nullptr) return shown + " is no setting and has no effect";
    seen[static_cast<size_t>(row - setting_rows)] = true;
    if (position != 0) return shown + " has text before its key, so a wrong value is read";
    std::string_view value = line.substr(std::string_view(row->key).size() + 1);
    if (!value.empty() && !row->fits(value, row->argument))
        return shown + " should hold " + row->meaning;
    return std::nullopt;
}

std::vector<std::string> init_faults(std::string_view text)
{
    std::vector<std::string> faults;
    std::vector<bool> seen(std::size(setting_rows), false);
    while (!text.empty()) {
        size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        line = line.substr(0, std::min(line.find('\r'), line.size()));
        if (line.empty()) continue;
        if (auto fault = line_fault(line, seen)) faults.push_back(*fault);
    }
    for (size_t i = 0; i < seen.size(); i++)
        if (!seen[i] && setting_rows[i].when_missing)
            faults.push_back(std::string("the key ") + setting_rows[i].key +
                             "= is missing: " + setting_rows[i].when_missing);
    return faults;
}
