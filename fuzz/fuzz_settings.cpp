/* Any bytes as the settings of a list (even first byte), beside a plain reader, or as the machine's
   local configuration. */
#include <string.h>

#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "mlist/mlist.h"
#include "module/module_vars.h"
#include "tests/reference/settings.h"

static void compare(const ListSettings &got, const ListSettings &wanted)
{
    demand(got.command_mask == wanted.command_mask);
    demand(got.subject_mode == wanted.subject_mode);
    demand(got.precedence == wanted.precedence);
    demand(got.journal == wanted.journal);
    demand(got.nonmember_command_mask == wanted.nonmember_command_mask);
    demand(got.summary_limit == wanted.summary_limit);
    demand(got.digest_time == wanted.digest_time);
    demand(strcmp(got.subject_format, wanted.subject_format) == 0);
    demand(strcmp(got.reply_to, wanted.reply_to) == 0);
    demand(got.nonmembers_may_post == wanted.nonmembers_may_post);
    demand(got.default_status == wanted.default_status);
    demand(got.reply_to_mode == wanted.reply_to_mode);
    demand(got.confirmation == wanted.confirmation);
    demand(got.size_limit == wanted.size_limit);
    demand(strcmp(got.web_password, wanted.web_password) == 0);
}

static void read_list_settings(QuickList *quick, const std::string &contents)
{
    quick->list.put("init", contents);
    ListSettings settings = g_mlit;
    demand(get_mlini("mylist", "example.jp", &settings) == 0);
    compare(settings, reference::read_settings(contents, g_mlit));
}

/* Every number stands in a line of its own that begins with its key, or is 0. */
static void read_local_configuration(QuickList *quick, const std::string &contents)
{
    static std::string path;
    path = quick->list.control("local.conf");
    local_conf_path = path.c_str();
    quick->list.put("local.conf", contents);
    int32_t values[12];
    local_conf2(values);
    for (const int32_t value : values) {
        if (value == 0 || value == INT32_MAX || value == INT32_MIN) continue;
        demand(contents.find(std::to_string(value < 0 ? -int64_t{value} : value)) !=
               std::string::npos);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QuickList quick;
    if (size < 1 || size > 50000) return 0;
    const std::string contents(reinterpret_cast<const char *>(data + 1), size - 1);
    if (data[0] % 2 == 0)
        read_list_settings(&quick, contents);
    else
        read_local_configuration(&quick, contents);
    return 0;
}
