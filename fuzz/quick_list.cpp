#include "fuzz/quick_list.h"

#include <stdio.h>
#include <stdlib.h>

#include "fuzz/memory_directory.h"
#include "mlist/mlist.h"
#include "module/os.h"
#include "tests/reference/line_reader.h"

QuickSurroundings::QuickSurroundings()
{
    static OsCalls calls = kernel_calls;
    calls.fsync = [](int) { return 0; };
    calls.time = [](time_t *) -> time_t { return QUICK_LIST_NOW; };
    os = &calls;
    setenv("TMPDIR", memory_directory().c_str(), 1);
    mlist_set_output(fopen("/dev/null", "we"));
}

ArgumentAndFile argument_and_file(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = text.find('\n');
    if (end == std::string::npos) return {text.c_str(), ""};
    return {text.substr(0, end).c_str(), text.substr(end + 1)};
}

std::vector<std::string> pieces_of(const std::string &contents)
{
    reference::LineReader reader(contents);
    std::vector<std::string> pieces;
    while (auto piece = reader.next(4096))
        pieces.push_back(*piece);
    return pieces;
}

std::vector<std::string> kept_pieces_of(const std::string &contents)
{
    reference::LineReader reader(contents);
    std::vector<std::string> pieces;
    while (auto piece = reader.next(4096)) {
        const bool split = piece->ends_with("\r\r\n") && reader.position() == 1;
        if (split) piece->erase(piece->size() - 3, 1);
        pieces.push_back(*piece);
    }
    return pieces;
}

bool same_nocase(const std::string &left, const std::string &right)
{
    if (left.size() != right.size()) return false;
    for (size_t i = 0; i < left.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; };
        if (lower(left[i]) != lower(right[i])) return false;
    }
    return true;
}

Member member_of(const std::string &piece)
{
    const size_t blank = piece.find(' ');
    if (blank == std::string::npos) return {};
    static const std::string words[] = {"ON", "OFF", "DGT"};
    Member member = {true, piece.substr(0, blank), 0};
    for (int status = 1; status <= 3; ++status) {
        const std::string &word = words[status - 1];
        if (same_nocase(piece.substr(blank + 1, word.size()), word)) member.status = status;
    }
    return member;
}
