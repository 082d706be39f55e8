#include "tests/concurrency/notes.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

std::string read_note(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

static bool write_with(const std::string &path, const std::string &text, int flags)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
    if (fd < 0) return false;
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
    close(fd);
    return true;
}

void write_note(const std::string &path, const std::string &text)
{
    if (!write_with(path, text, O_TRUNC)) abort();
}

bool make_note(const std::string &path, const std::string &text)
{
    return write_with(path, text, O_EXCL);
}

std::vector<std::string> split_lines(const std::string &text, const std::string &end)
{
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t at; (at = text.find(end, start)) != std::string::npos; start = at + end.size())
        lines.push_back(text.substr(start, at - start));
    if (start < text.size()) lines.push_back(text.substr(start) + "(no line end)");
    return lines;
}
