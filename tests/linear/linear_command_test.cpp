/* Arguments of commands.  Command lines as such have 4,096 characters at most: see the deliveries.
 */
#include <gtest/gtest.h>

#include "commands/cmd.h"
#include "commands/cmd_args.h"
#include "module/host_mem.h"
#include "tests/linear/linear.h"
#include "tests/support/temp_list.h"
#include "tests/unit/archive_fetch/reader.h"

static const std::vector<Worst> arguments = {
    {"one number", repeated("1")},
    {"commas", repeated(",")},
    {"numbers", repeated("1,")},
    {"ranges", repeated("1-3,")},
    {"ranges turned round", repeated("3-1,")},
    {"hyphens", repeated("-")},
    {"blanks", repeated(" ")},
    {"blanks around commas", repeated(" , ")},
    {"blanks around hyphens", repeated("1 - 3 , ")},
    {"all", repeated("all,")},
    {"stars", repeated("*")},
    {"line ends", repeated("\r\n"), "the first ends it"},
    {"letters", repeated("x")},
};

TEST(LinearCommand, Arguments)
{
    const std::string mail = crlf("Subject: s\n\nx\n");
    Reader reader(std::vector<std::string>{mail, mail, mail});
    TempList list;
    list.job()->mailbox = reader.handle();
    demand_linear(arguments, [](std::string &text) { (void)correct_argstr(text.data()); });
    std::vector<Worst> stopping = arguments;
    for (Worst &row : stopping)
        row.bound = "stops at the first item that is none, or that is all of them";
    demand_linear(stopping, [&](std::string &text) {
        char area[64];
        int first, last;
        (void)expand_argstr(reader.handle()->index, text.c_str(), area, sizeof(area));
        (void)summconv_argstr(text.c_str(), reader.handle()->index, &first, &last);
    });
    demand_linear(stopping, [&](std::string &text) {
        unsigned char *bitmap = nullptr;
        size_t size = 0;
        if (conv_argstr(list.job(), text.c_str(), &bitmap, &size) == 0) host_release(bitmap);
    });
}

TEST(LinearCommand, ShortForms)
{
    std::vector<char> out(65 * MIB);
    demand_linear(
        {{"one number over and over", repeated("1 ")},
         {"numbers with gaps", repeated("1 3 5 2 ")},
         {"one number", repeated("1")},
         {"blanks", repeated(" "), "no number"}},
        [&](std::string &text) { (void)short_argstr(text.c_str(), out.data(), out.size()); });
}
