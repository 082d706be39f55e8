/* Any bytes as the pending confirmations of a list: cleaned, asked for an address and added to,
   beside a plain way over the lines.  The first line of the input is the address. */
#include <string.h>

#include <array>
#include <optional>

#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "store/confirm.h"

using Minute = std::array<long long, 5>;

/* The number before the separator, which goes with it; none when there is another text. */
static std::optional<long long> take_number(std::string *text, char separator)
{
    const size_t end = text->find_first_not_of("0123456789");
    if (end == 0 || end == std::string::npos || (*text)[end] != separator) return std::nullopt;
    const std::string digits = text->substr(0, end);
    text->erase(0, end + 1);
    const size_t zeros = digits.find_first_not_of('0');
    if (zeros == std::string::npos) return 0;
    return digits.size() - zeros > 12 ? 2147483647 : std::min(2147483647LL, std::stoll(digits));
}

/* The id of a line that is good now, behind its address; none for a bad one. */
static std::optional<std::string> id_of(std::string text)
{
    const time_t seconds = QUICK_LIST_NOW;
    struct tm now;
    localtime_r(&seconds, &now);
    const Minute current = {now.tm_year, now.tm_mon, now.tm_mday, now.tm_hour, now.tm_min};
    Minute until = {};
    for (size_t i = 0; i < until.size(); ++i) {
        const auto number = take_number(&text, "//:: "[i]);
        if (!number) return std::nullopt;
        until[i] = *number;
    }
    const unsigned char first = text.empty() ? 0 : static_cast<unsigned char>(text[0]);
    if (first < 32 || first == 127 || until < current) return std::nullopt;
    return text;
}

static std::optional<std::string> id_of_line(const std::string &piece)
{
    const size_t blank = piece.find(' ');
    return blank == std::string::npos ? std::nullopt : id_of(piece.substr(blank + 1));
}

/* What the answer to the address's mail must be: the id of its first good line. */
static std::string expected_id(const std::vector<std::string> &pieces, const std::string &address)
{
    if (address.empty()) return "";
    for (const std::string &piece : pieces) {
        if (!same_nocase(piece.substr(0, piece.find(' ')), address)) continue;
        auto id = id_of_line(piece);
        if (!id) continue;
        id->erase(id->find_last_not_of(" \t\r\n") + 1);
        if (!id->empty()) return id->substr(0, CONFIRM_ID_SIZE - 1);
    }
    return "";
}

static void look_up(QuickList *quick, const std::string &contents, const std::string &address)
{
    char id[CONFIRM_ID_SIZE];
    const std::string expected = expected_id(pieces_of(contents), address);
    demand(get_cnfrmdb(quick->job(), address.c_str(), id) == (expected.empty() ? 0 : 1));
    demand(id == expected);
}

static std::string clean(QuickList *quick, const std::string &contents)
{
    demand(cln_cnfrmdb(quick->job()) == 0);
    std::string wanted;
    for (const std::string &piece : kept_pieces_of(contents))
        if (id_of_line(piece)) wanted += piece;
    demand(quick->list.get("confirm") == wanted);
    return wanted;
}

static void add(QuickList *quick, std::string contents, const std::string &address)
{
    quick->job()->settings.confirmation = 3;
    demand(add_cnfrmdb(quick->job(), address.c_str(), "0123456789ABCDEF") == 0);
    if (!contents.empty() && !contents.ends_with('\n')) contents += "\r\n";
    const std::string after = quick->list.get("confirm");
    demand(after.starts_with(contents));
    demand(after.compare(contents.size(), address.size(), address) == 0);
    demand(after.ends_with(" 0123456789ABCDEF\r\n"));
    look_up(quick, after, address);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QuickList quick;
    if (size > 20000) return 0;
    const ArgumentAndFile input = argument_and_file(data, size);
    quick.list.put("confirm", input.contents);
    look_up(&quick, input.contents, input.argument);
    const std::string cleaned = clean(&quick, input.contents);
    look_up(&quick, cleaned, input.argument);
    if (!input.argument.empty() && input.argument.size() < 4000)
        add(&quick, cleaned, input.argument);
    return 0;
}
