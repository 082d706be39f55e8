#include "fuzz/small_archive.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/memory_directory.h"
#include "mlist/archive.h"

namespace fs = std::filesystem;

std::string read_text(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    demand(out.flush().good());
}

static std::string &directory()
{
    static std::string path;
    return path;
}

static std::string make_mailbox()
{
    std::string name = memory_directory() + "/fuzz-archive-XXXXXX";
    demand(mkdtemp(name.data()) != nullptr);
    directory() = name;
    atexit([] {
        std::error_code ignored;
        fs::remove_all(directory(), ignored);
    });
    demand(mlmbx_create((name + "/INBOX").c_str()) == 1);
    return name + "/INBOX";
}

const std::string &fuzz_mailbox()
{
    static const std::string box = make_mailbox();
    return box;
}

bool append_message(const std::string &message, uint32_t flags)
{
    const std::string &box = fuzz_mailbox();
    const std::string source = directory() + "/source";
    write_text(source, message);
    const size_t blank = message.find("\r\n\r\n");
    const uint32_t header = blank == std::string::npos ? 0 : static_cast<uint32_t>(blank + 4);
    IndexHandle *batch = list_mbx_append(box.c_str(), NO_INDEX_HANDLE, source.c_str(), flags,
                                         header, static_cast<uint32_t>(message.size()), 1);
    if (batch == NO_INDEX_HANDLE) return false;
    (void)list_mbx_append(nullptr, batch, nullptr, 0, 0, 0, 0);
    return true;
}
