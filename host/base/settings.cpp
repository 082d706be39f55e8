/* Reading, laying over the defaults, and printing. */
#include "host/base/settings.h"

#include <algorithm>
#include <filesystem>
#include <limits.h>
#include <toml++/toml.h>
#include <unistd.h>

#include "host/base/endpoint.h"
#include "host/base/files.h"
#include "host/base/names.h"
#include "host/base/text.h"

namespace
{

/* Where in which file; makes the one line of an error. */
struct Place {
    const std::string &file;
    size_t line;
    std::string key;

    [[nodiscard]] Error error(const std::string &what) const
    {
        return Error{file + ":" + std::to_string(line) + ": " + key + ": " + what, EINVAL};
    }
};

const SettingKey *find_key(std::string_view table, std::string_view name)
{
    for (const SettingKey &key : setting_keys())
        if (table == key.table && name == key.name) return &key;
    return nullptr;
}

bool known_table(std::string_view table)
{
    const auto keys = setting_keys();
    return std::any_of(keys.begin(), keys.end(),
                       [&](const SettingKey &key) { return table == key.table; });
}

/* -- what each kind takes -- */

std::string fault_of_listen(const std::string &text)
{
    return parse_endpoint(text) ? "" : "must be \"ADDRESS:PORT\" or \"unix:/PATH\"";
}

std::string fault_of_suffix(const std::string &text)
{
    const bool good = text.size() >= 2 && text.size() <= 16 && text == lower(text) &&
                      text != "-owner" && !is_alnum(text.front()) &&
                      valid_list_name("x" + text + "x", {});
    return good ? "" : "must be a separator and a word, such as \"-ctl\", and not \"-owner\"";
}

std::string fault_of_text(const SettingKey &key, const std::string &text)
{
    if (std::any_of(text.begin(), text.end(), is_control)) return "has a control character";
    const auto length = static_cast<int64_t>(text.size());
    if (length < key.least) return "must not be empty";
    if (length > key.most) return "is longer than " + std::to_string(key.most) + " characters";
    return "";
}

/* Texts that only some words satisfy. */
std::string fault_of_words(const SettingKey &key, const std::string &text)
{
    const std::string name = std::string(key.table) + "." + key.name;
    if (name == "relay.target" && text != "outbox" &&
        !(text.starts_with("smtp:") && parse_endpoint(text.substr(5))))
        return "must be \"outbox\" or \"smtp:HOST:PORT\"";
    static const char *const targets[] = {"stderr", "syslog", "journal", "none"};
    if (name == "log.target" && !text.starts_with("file:/") &&
        std::find(std::begin(targets), std::end(targets), text) == std::end(targets))
        return "must be \"stderr\", \"file:/PATH\", \"syslog\", \"journal\" or \"none\"";
    if (name == "process.hostname" && !text.empty() && !valid_domain(lower(text)))
        return "must be a host name";
    return "";
}

std::string absolute_path(const std::string &text, const std::string &file)
{
    namespace fs = std::filesystem;
    if (text.empty() || text.front() == '/') return text;
    std::string path = (fs::absolute(file).parent_path() / text).lexically_normal().string();
    if (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::optional<int64_t> number_of(SettingKind kind, const toml::node &node)
{
    if (const auto *integer = node.as_integer()) return integer->get();
    const auto *text = node.as_string();
    if (text == nullptr) return std::nullopt;
    if (kind == SettingKind::size) return parse_size(text->get());
    if (kind == SettingKind::duration) return parse_duration(text->get());
    return std::nullopt;
}

const char *expected(SettingKind kind)
{
    switch (kind) {
    case SettingKind::size:
        return "must be a size, such as 1048576 or \"50M\"";
    case SettingKind::duration:
        return "must be a time, such as 90 (seconds) or \"5m\"";
    case SettingKind::number:
    case SettingKind::mode:
        return "must be a number";
    case SettingKind::listen:
    case SettingKind::suffixes:
        return "must be a text or a list of texts";
    default:
        return "must be a text";
    }
}

Result<void> lay_number(Settings &settings, const SettingKey &key, const toml::node &node,
                        const Place &place)
{
    const auto number = number_of(key.kind, node);
    if (!number) return place.error(expected(key.kind));
    if (*number < key.least || *number > key.most)
        return place.error("must lie between " + std::to_string(key.least) + " and " +
                           std::to_string(key.most));
    settings.*std::get<int64_t Settings::*>(key.member) = *number;
    return {};
}

Result<void> lay_text(Settings &settings, const SettingKey &key, const toml::node &node,
                      const Place &place)
{
    const auto *value = node.as_string();
    if (value == nullptr) return place.error(expected(key.kind));
    const bool in_file_directory =
        key.kind == SettingKind::path &&
        (std::string_view(key.name) != "module" || value->get().find('/') != std::string::npos);
    std::string text = in_file_directory ? absolute_path(value->get(), place.file) : value->get();
    std::string fault = fault_of_text(key, text);
    if (fault.empty()) fault = fault_of_words(key, text);
    if (!fault.empty()) return place.error(fault);
    settings.*std::get<std::string Settings::*>(key.member) = std::move(text);
    return {};
}

/* One text or a list of them. */
std::optional<std::vector<std::string>> texts_of(const toml::node &node)
{
    if (const auto *text = node.as_string()) return std::vector{text->get()};
    const auto *array = node.as_array();
    if (array == nullptr) return std::nullopt;
    std::vector<std::string> texts;
    for (const toml::node &item : *array) {
        if (!item.is_string()) return std::nullopt;
        texts.push_back(item.as_string()->get());
    }
    return texts;
}

Result<void> lay_texts(Settings &settings, const SettingKey &key, const toml::node &node,
                       const Place &place)
{
    const auto texts = texts_of(node);
    if (!texts) return place.error(expected(key.kind));
    const auto count = static_cast<int64_t>(texts->size());
    if (count < key.least || count > key.most)
        return place.error("must have " + std::to_string(key.least) + " to " +
                           std::to_string(key.most) + " entries");
    for (const std::string &text : *texts) {
        const std::string fault =
            key.kind == SettingKind::listen ? fault_of_listen(text) : fault_of_suffix(text);
        if (!fault.empty()) return place.error("\"" + one_line(text) + "\" " + fault);
    }
    settings.*std::get<std::vector<std::string> Settings::*>(key.member) = *texts;
    return {};
}

Result<void> lay_value(Settings &settings, const SettingKey &key, const toml::node &node,
                       const Place &place)
{
    if (std::holds_alternative<int64_t Settings::*>(key.member))
        return lay_number(settings, key, node, place);
    if (std::holds_alternative<std::string Settings::*>(key.member))
        return lay_text(settings, key, node, place);
    return lay_texts(settings, key, node, place);
}

Result<void> lay_table(Settings &settings, std::string_view table, const toml::table &values,
                       const std::string &file)
{
    for (const auto &[name, node] : values) {
        const std::string full = std::string(table) + "." + std::string(name.str());
        const Place place{file, name.source().begin.line, one_line(full)};
        const SettingKey *key = find_key(table, name.str());
        if (key == nullptr) return place.error("there is no such key");
        auto laid = lay_value(settings, *key, node, place);
        if (!laid) return laid;
    }
    return {};
}

Result<void> lay_file(Settings &settings, const toml::table &tables, const std::string &file)
{
    for (const auto &[name, node] : tables) {
        const Place place{file, name.source().begin.line, one_line(name.str())};
        if (!known_table(name.str())) return place.error("there is no such table");
        if (!node.is_table()) return place.error("must be a table");
        auto laid = lay_table(settings, name.str(), *node.as_table(), file);
        if (!laid) return laid;
    }
    return {};
}

/* What stands before the "=" of a line, for errors that the parser reports only by position. */
std::string key_in_line(std::string_view text, size_t line)
{
    const auto lines = split(text, '\n');
    if (line == 0 || line > lines.size()) return "?";
    const std::string_view row = trim(lines[line - 1]);
    const std::string key = one_line(trim(row.substr(0, row.find('='))));
    return key.empty() ? "?" : key.substr(0, 60);
}

void fill_paths(Settings &settings)
{
    const std::pair<std::string Settings::*, const char *> below_data[] = {
        {&Settings::control_root, "/control"},  {&Settings::archive_root, "/archive"},
        {&Settings::spool_directory, "/spool"}, {&Settings::outbox_directory, "/outbox"},
        {&Settings::config_directory, "/conf"},
    };
    for (const auto &[member, name] : below_data)
        if ((settings.*member).empty()) settings.*member = settings.data_directory + name;
}

std::string toml_text(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string printed(const SettingKey &key, const Settings &settings)
{
    if (const auto *text = std::get_if<std::string Settings::*>(&key.member))
        return toml_text(settings.**text);
    if (const auto *number = std::get_if<int64_t Settings::*>(&key.member)) {
        char buffer[32];
        snprintf(buffer, sizeof(buffer), key.kind == SettingKind::mode ? "0o%llo" : "%lld",
                 static_cast<long long>(settings.**number));
        return buffer;
    }
    std::string out;
    for (const std::string &text :
         settings.*std::get<std::vector<std::string> Settings::*>(key.member))
        out += (out.empty() ? "" : ", ") + toml_text(text);
    return "[" + out + "]";
}

} // namespace

Settings default_settings()
{
    Settings settings;
    fill_paths(settings);
    return settings;
}

Result<Settings> parse_settings(std::string_view text, const std::string &file)
{
    Settings settings;
    try {
        auto laid = lay_file(settings, toml::parse(text, file), file);
        if (!laid) return laid.error();
    } catch (const toml::parse_error &failure) {
        const size_t line = failure.source().begin.line;
        return Place{file, line, key_in_line(text, line)}.error(one_line(failure.description()));
    }
    fill_paths(settings);
    return settings;
}

Result<Settings> read_settings(const std::string &file)
{
    const auto text = load_file(file);
    if (!text) return text.error();
    return parse_settings(*text, file);
}

Result<Settings> read_settings_or_usual(const std::string &file)
{
    if (!file.empty()) return read_settings(file);
    if (access(USUAL_SETTINGS_FILE, F_OK) != 0) return default_settings();
    return read_settings(USUAL_SETTINGS_FILE);
}

std::string print_settings(const Settings &settings)
{
    std::string out;
    std::string_view table;
    for (const SettingKey &key : setting_keys()) {
        if (table != key.table) {
            out += (table.empty() ? "[" : "\n[") + std::string(key.table) + "]\n";
            table = key.table;
        }
        out +=
            std::string("# ") + key.help + "\n" + key.name + " = " + printed(key, settings) + "\n";
    }
    return out;
}

std::string host_name(const Settings &settings)
{
    if (!settings.hostname.empty()) return settings.hostname;
    char name[HOST_NAME_MAX + 1] = "";
    const bool known = gethostname(name, sizeof(name) - 1) == 0 && valid_domain(lower(name));
    return known ? name : "localhost";
}

static std::string list_path(const std::string &root, std::string_view list,
                             std::string_view domain)
{
    return root + "/" + std::string(domain) + "/" + std::string(list);
}

std::string control_path(const Settings &settings, std::string_view list, std::string_view domain)
{
    return list_path(settings.control_root, list, domain);
}

std::string archive_path(const Settings &settings, std::string_view list, std::string_view domain)
{
    return list_path(settings.archive_root, list, domain);
}

std::string owners_path(const Settings &settings, std::string_view list, std::string_view domain)
{
    return list_path(settings.config_directory + "/lists", list, domain) + "/owners";
}
