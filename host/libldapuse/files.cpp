/* The files backend: PLACE/services.toml, PLACE/lists/DOMAIN/LIST/{welcome,help}.

   services.toml:
     [smtp]
     log_level = 5
     n1 = 0          # to n9: further numbers of the service, kept for programs that use them
     text = ""       # likewise */
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <limits>
#include <toml++/toml.h>

#include "host/base/regular_file.h"
#include "host/libldapuse/directory.h"
#include "ldapuse.h"

/* Missing files and directories are no errors. */
static int result_of_errno()
{
    return errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG ? KYT_NOT_FOUND : KYT_ERROR;
}

static int read_at(const Fd &file, int64_t offset, size_t size, std::string &text_out)
{
    text_out.resize(size);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(file.get(), text_out.data() + done, size - done,
                                static_cast<off_t>(offset + static_cast<int64_t>(done)));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return KYT_ERROR;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    text_out.resize(done);
    return KYT_FOUND;
}

static std::optional<int32_t> number_at(const toml::table &table, std::string_view key)
{
    const auto value = table[key].value<int64_t>();
    if (!value || *value < std::numeric_limits<int32_t>::min() ||
        *value > std::numeric_limits<int32_t>::max())
        return std::nullopt;
    return static_cast<int32_t>(*value);
}

static void read_smtp_table(const toml::table &smtp, ServiceConf &conf_out)
{
    for (size_t i = 0; i < conf_out.numbers.size(); i++)
        conf_out.numbers[i] = number_at(smtp, "n" + std::to_string(i + 1));
    conf_out.text = smtp["text"].value<std::string>();
    conf_out.log_level = number_at(smtp, "log_level");
}

static int services(const std::string &place, ServiceConf &conf_out)
{
    constexpr size_t LONGEST_FILE = 1024 * 1024;
    const std::string path = place + "/services.toml";
    const Fd file = open_regular(path);
    std::string text;
    const int result = file ? read_at(file, 0, LONGEST_FILE, text) : result_of_errno();
    if (result != KYT_FOUND) return result;
    try {
        const toml::table parsed = toml::parse(text, path);
        if (const toml::table *smtp = parsed["smtp"].as_table()) read_smtp_table(*smtp, conf_out);
    } catch (const toml::parse_error &error) {
        fprintf(stderr, "%s:%u: %s\n", path.c_str(), error.source().begin.line,
                std::string(error.description()).c_str());
        return KYT_ERROR;
    }
    return KYT_FOUND;
}

/* Names come from mail: nothing of them may lead to another directory. */
static bool is_component(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
}

static int text(const std::string &place, TextKind kind, std::string_view domain,
                std::string_view list, int64_t offset, size_t size, std::string &text_out,
                bool &end_out)
{
    if (!is_component(domain) || !is_component(list)) return KYT_NOT_FOUND;
    std::string path = place + "/lists/";
    path.append(domain).append("/").append(list);
    path += kind == TextKind::welcome ? "/welcome" : "/help";
    const Fd file = open_regular(path);
    const int result = file ? read_at(file, offset, size + 1, text_out) : result_of_errno();
    if (result != KYT_FOUND) return result;
    end_out = text_out.size() <= size;
    if (!end_out) text_out.resize(size);
    return KYT_FOUND;
}

const Backend files_backend = {"files", services, text};
