#include "tests/reference/posting_files.h"

#include <errno.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "mlist/mlist.h"
#include "module/unix_sv.h"
#include "tests/reference/line_reader.h"

namespace fs = std::filesystem;

namespace literal
{
/* -- whole files -- */

std::string path_of(const DeliveryJob &job, const std::string &name)
{
    return std::string(g_path_mlist) + "/" + job.domain + "/" + job.list_name + "/" + name;
}

std::string contents_of(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> lines_of(const std::string &path, int size)
{
    reference::LineReader reader(contents_of(path));
    std::vector<std::string> lines;
    while (const auto line = reader.next(size))
        lines.push_back(*line);
    return lines;
}

/* Over the file in place, a byte at a time; only a file that was not there gets the mode. */
static void put(const std::string &path, const std::string &bytes, mode_t mode)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    for (const char byte : bytes)
        if (write(fd, &byte, 1) != 1) abort();
    close(fd);
}

static void copy(const std::string &from, const std::string &to)
{
    put(to, contents_of(from), 0600);
}

static bool missing(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) != 0;
}

/* -- replacement -- */

static void roll_forward(const std::string &path)
{
    copy(path + ".new", path);
    fs::remove(path + ".old");
    fs::remove(path + ".new");
}

static void replace(const std::string &path, const std::string &text)
{
    put(path + ".new", text, 0660);
    copy(path, path + ".old");
    roll_forward(path);
}

void recover(const std::string &path)
{
    if (missing(path + ".new")) return;
    trace_sys(&g_logh, 5, 288, ".new detected [%s]", (path + ".new").c_str());
    if (missing(path + ".old")) {
        fs::remove(path + ".new");
        return;
    }
    trace_sys(&g_logh, 5, 289, ".old detected [%s]", (path + ".old").c_str());
    roll_forward(path);
}

/* -- who may post -- */

static std::string without_ends(std::string text)
{
    while (!text.empty() && std::string(" \t\r\n").find(text.back()) != std::string::npos)
        text.pop_back();
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.erase(text.begin());
    return text;
}

static bool same(const std::string &left, const std::string &right)
{
    return strcasecmp(left.c_str(), right.c_str()) == 0;
}

static int is_member(const DeliveryJob &job)
{
    const std::string path = path_of(job, "member");
    recover(path);
    if (missing(path)) {
        errno = ENOENT;
        trace_sys(&g_logh, 11, 183, "mlname=%s get_member f_open error %m [%s]", job.list_name,
                  path.c_str());
        return -1;
    }
    for (const std::string &line : lines_of(path, LINE_SIZE)) {
        const size_t blank = line.find(' ');
        if (blank != std::string::npos && same(line.substr(0, blank), job.sender)) return 1;
    }
    return 0;
}

int may_post(const DeliveryJob &job)
{
    const std::string path = path_of(job, "grant");
    recover(path);
    if (missing(path)) {
        errno = ENOENT;
        trace_sys(&g_logh, 1, 186, "mlname=%s get_grant file not stat %m", job.list_name);
        return -1;
    }
    if (contents_of(path).empty()) return is_member(job);
    for (const std::string &line : lines_of(path, LINE_SIZE))
        if (same(without_ends(line), job.sender)) return !without_ends(line).empty();
    return 0;
}

/* -- digest status -- */

/* Elements are numbers and ranges, separated by commas; only the last one can grow. */
static std::string with_number(const std::string &line, uint32_t number)
{
    const std::string text = std::to_string(number);
    const size_t comma = line.rfind(',');
    const std::string before = comma == std::string::npos ? "" : line.substr(0, comma + 1);
    const std::string last = comma == std::string::npos ? line : line.substr(comma + 1);
    const size_t dash = last.find('-');
    const std::string end = dash == std::string::npos ? last : last.substr(dash + 1);
    if (before.empty() && dash == std::string::npos && atoll(line.c_str()) == 0) return text;
    if (atoll(end.c_str()) + 1 != number) return line + "," + text;
    return before + (dash == std::string::npos ? last : last.substr(0, dash)) + "-" + text;
}

int add_to_digest(const DeliveryJob &job, uint32_t number)
{
    const std::string path = path_of(job, "dgtstat");
    recover(path);
    if (missing(path)) {
        errno = ENOENT;
        trace_sys(&g_logh, 1, 147, "mlname=%s set_dstfile f_open1 error %m [%s]", job.list_name,
                  path.c_str());
        return -1;
    }
    const std::vector<std::string> lines = lines_of(path, LINE_SIZE);
    if (lines.size() > 1) {
        errno = 0;
        trace_sys(&g_logh, 1, 148, "mlname=%s set_dstfile dgtstat format1 error %m [%s]",
                  job.list_name, path.c_str());
        return -1;
    }
    replace(path, with_number(lines.empty() ? "" : lines[0], number));
    return 0;
}

/* -- recipients -- */

bool has_active(const DeliveryJob &job)
{
    const std::string path = path_of(job, "active");
    recover(path);
    if (missing(path))
        trace_sys(&g_logh, 1, 244, "mlname=%s notexist_active active file not exist",
                  job.list_name);
    else if (contents_of(path).empty())
        trace_sys(&g_logh, 1, 245, "mlname=%s notexist_active active file empty", job.list_name);
    else
        trace_sys(&g_logh, 11, 246, "mlname=%s notexist_active active file availabe",
                  job.list_name);
    return !contents_of(path).empty();
}
} // namespace literal
