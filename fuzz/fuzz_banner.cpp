/* Any bytes as a banner: what is put into a posting is the file in JIS, line by line.  The first
   byte chooses which banner. */
#include <string.h>

#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "store/file.h"
#include "store/ntio.h"
#include "tests/reference/jis.h"

static std::string inserted(QuickList *quick, bool top)
{
    const std::string path = quick->list.control("jnl/j.1");
    DeliveryJob *job = quick->job();
    job->journal = f_open(path.c_str(), "w");
    demand(job->journal != nullptr);
    demand((top ? insert_banner_t(job) : insert_banner_b(job)) == 0);
    demand(f_close(job->journal) == 1);
    job->journal = nullptr;
    return read_file(path);
}

/* Line by line; what follows a zero byte in a line is lost, and with it the line end.  Half a
   character can become one. */
static std::string expected(const std::string &contents)
{
    std::string text;
    for (size_t from = 0; from < contents.size();) {
        const size_t feed = contents.find('\n', from);
        const size_t end = feed == std::string::npos ? contents.size() : feed + 1;
        const std::string line = contents.substr(from, end - from).c_str();
        text += reference::euc2jis(line, static_cast<int>(5 * line.size() + 16)).output.c_str();
        from = end;
    }
    return text + "\r\n";
}

static size_t longest_line(const std::string &text)
{
    size_t longest = 0;
    for (size_t from = 0; from < text.size();) {
        const size_t end = std::min(text.find('\n', from), text.size());
        longest = std::max(longest, end - from);
        from = end + 1;
    }
    return longest;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QuickList quick;
    if (size < 1 || size > 50000) return 0;
    const std::string contents(reinterpret_cast<const char *>(data + 1), size - 1);
    const bool top = data[0] % 2 == 0, jis = data[0] / 2 % 2 == 0;
    quick.job()->content_kind = jis ? CONTENT_JIS : CONTENT_PLAIN;
    quick.list.put(std::string("msg/bnr") + (top ? "top" : "btm") + (jis ? "j" : "") + ".txt",
                   contents);
    const std::string text = inserted(&quick, top);
    demand(text.find('\0') == std::string::npos && text.ends_with("\r\n"));
    /* longer lines are converted in pieces, each with its own escapes */
    if (longest_line(contents) < 800) demand(text == expected(contents));
    return 0;
}
