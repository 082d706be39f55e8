/* A main for fuzzers built without libFuzzer.  Files and directories named on the command line are
   run one after the other; without any, made-up texts are.  Of libFuzzer's options it knows
   -runs=N, -seed=N and -dict=FILE and ignores the others, so that both kinds of program are started
   alike. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static void run_bytes(const std::string &bytes)
{
    /* an allocation of exactly this size, so that a byte read too many is noticed */
    const std::vector<uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size());
}

static void run_file(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        exit(1);
    }
    printf("Running: %s\n", path.c_str());
    run_bytes(std::string(std::istreambuf_iterator<char>(in), {}));
}

static void run_path(const fs::path &path)
{
    if (!fs::is_directory(path)) return run_file(path);
    for (const auto &entry : fs::directory_iterator(path))
        if (entry.is_regular_file()) run_file(entry.path());
}

/* -- made-up texts -- */

/* The text between the quotes of a dictionary's line, which knows \\, \" and \xNN. */
static std::string unescaped(const std::string &quoted)
{
    std::string text;
    for (size_t i = 0; i < quoted.size(); ++i) {
        if (quoted[i] != '\\' || i + 1 >= quoted.size()) {
            text += quoted[i];
        } else if (quoted[++i] == 'x') {
            text += static_cast<char>(strtoul(quoted.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            text += quoted[i];
        }
    }
    return text;
}

static std::vector<std::string> read_dictionary(const char *path)
{
    std::ifstream in(path);
    if (!in) {
        fprintf(stderr, "cannot read %s\n", path);
        exit(1);
    }
    std::vector<std::string> words;
    for (std::string line; std::getline(in, line);) {
        const size_t begin = line.find('"'), end = line.rfind('"');
        if (line[0] != '#' && begin < end)
            words.push_back(unescaped(line.substr(begin + 1, end - begin - 1)));
    }
    return words;
}

static std::vector<std::string> dictionary;

/* What our grammars are made of, besides any byte at all. */
static std::string made_up_piece(std::mt19937 *random)
{
    if (!dictionary.empty() && (*random)() % 4 != 0)
        return dictionary[(*random)() % dictionary.size()];
    static const char *const words[] = {
        "\x1b$B", "\x1b$@", "\x1b(B", "\x1b(J", "\x1b(I",   "=?ISO-2022-JP?B?", "?=",  "\r\n",
        "\n",     " ",      "\t",     "=",      "\x8e\xb6", "\x8e\xde",         "Re:", "From ",
    };
    switch ((*random)() % 8) {
    case 0:
    case 1:
        return words[(*random)() % (sizeof words / sizeof words[0])];
    case 2:
        return std::string((*random)() % 40, static_cast<char>((*random)()));
    case 3:
        return std::string((*random)() % 20, 'Q');
    case 4:
        return {static_cast<char>((*random)() % 94 + 0xA1),
                static_cast<char>((*random)() % 94 + 0xA1)};
    case 5:
        return {static_cast<char>((*random)())};
    default:
        return {static_cast<char>((*random)() % 95 + 0x20)};
    }
}

static void run_made_up(unsigned long runs, unsigned seed)
{
    std::mt19937 random(seed);
    for (; runs > 0; --runs) {
        std::string text = {static_cast<char>(random()), static_cast<char>(random())};
        for (unsigned pieces = random() % 60; pieces > 0; --pieces)
            text += made_up_piece(&random);
        run_bytes(text);
    }
}

int main(int argc, char **argv)
{
    unsigned long runs = 20000;
    unsigned seed = 1;
    std::vector<fs::path> paths;
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "-runs=", 6) == 0)
            runs = strtoul(argv[i] + 6, nullptr, 10);
        else if (strncmp(argv[i], "-seed=", 6) == 0)
            seed = static_cast<unsigned>(strtoul(argv[i] + 6, nullptr, 10));
        else if (strncmp(argv[i], "-dict=", 6) == 0)
            dictionary = read_dictionary(argv[i] + 6);
        else if (argv[i][0] != '-')
            paths.push_back(argv[i]);
    }
    for (const fs::path &path : paths)
        run_path(path);
    if (paths.empty()) run_made_up(runs, seed);
    return 0;
}
