/* A main for fuzzers built without libFuzzer, started alike: files named on the command line are
   run and nothing else; directories are corpora, of which every file is run, before -runs=N texts
   are made up from them and from the words of -dict=FILE, the same ones for the same -seed=N. Other
   options of libFuzzer are ignored.  The input that ends the program is kept, in the file that
   -artifact_prefix=PREFIX begins the name of. */
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/* -- the input that ends the program -- */

static const uint8_t *current_data;
static size_t current_size;
static std::string kept_input = "crash-input";

static void keep_input()
{
    if (current_data == nullptr) return;
    const int fd = open(kept_input.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0 || write(fd, current_data, current_size) != static_cast<ssize_t>(current_size))
        return;
    static const char told[] = "the input is kept in ";
    (void)!write(STDERR_FILENO, told, strlen(told));
    (void)!write(STDERR_FILENO, kept_input.data(), kept_input.size());
    (void)!write(STDERR_FILENO, "\n", 1);
    close(fd);
}

static void die(int signal)
{
    keep_input();
    ::signal(signal, SIG_DFL);
    raise(signal);
}

extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

static void keep_input_of_death()
{
    if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(keep_input);
    for (const int deadly : {SIGABRT, SIGILL, SIGTRAP})
        signal(deadly, die);
}

static void run_bytes(const std::string &bytes)
{
    /* an allocation of exactly this size, so that a byte read too many is noticed */
    const std::vector<uint8_t> data(bytes.begin(), bytes.end());
    current_data = data.data();
    current_size = data.size();
    LLVMFuzzerTestOneInput(data.data(), data.size());
    current_data = nullptr;
}

/* -- files -- */

static std::string contents_of(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        exit(1);
    }
    return std::string(std::istreambuf_iterator<char>(in), {});
}

static std::vector<std::string> samples; /* of the corpora */

static void run_file(const fs::path &path)
{
    printf("Running: %s\n", path.c_str());
    fflush(stdout);
    run_bytes(contents_of(path));
}

/* In an order that does not depend on the file system. */
static void run_corpus(const fs::path &directory)
{
    std::vector<fs::path> files;
    for (const auto &entry : fs::directory_iterator(directory))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const fs::path &file : files) {
        run_file(file);
        samples.push_back(contents_of(file));
    }
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

/* A text of pieces; the first bytes often choose what is tried. */
static std::string made_up_text(std::mt19937 *random)
{
    std::string text = {static_cast<char>((*random)()), static_cast<char>((*random)())};
    for (unsigned pieces = (*random)() % 60; pieces > 0; --pieces)
        text += made_up_piece(random);
    return text;
}

/* A sample with a few places changed: pieces put in, put over what was there, or cut out. */
static std::string changed_sample(std::mt19937 *random)
{
    std::string text = samples[(*random)() % samples.size()];
    for (unsigned changes = 1 + (*random)() % 6; changes > 0; --changes) {
        const size_t at = (*random)() % (text.size() + 1);
        const size_t gone = (*random)() % 3 == 0 ? 0 : (*random)() % 12;
        text.replace(at, gone, (*random)() % 4 == 0 ? "" : made_up_piece(random));
    }
    return text;
}

static void run_made_up(unsigned long runs, unsigned seed)
{
    std::mt19937 random(seed);
    for (; runs > 0; --runs)
        run_bytes(samples.empty() || random() % 2 == 0 ? made_up_text(&random)
                                                       : changed_sample(&random));
}

/* Whether the argument is this option; its value then. */
static const char *value_of(const char *argument, const char *option)
{
    const size_t length = strlen(option);
    return strncmp(argument, option, length) == 0 ? argument + length : nullptr;
}

int main(int argc, char **argv)
{
    unsigned long runs = 20000;
    unsigned seed = 1;
    std::vector<fs::path> paths;
    for (int i = 1; i < argc; ++i) {
        if (const char *number = value_of(argv[i], "-runs="))
            runs = strtoul(number, nullptr, 10);
        else if (const char *start = value_of(argv[i], "-seed="))
            seed = static_cast<unsigned>(strtoul(start, nullptr, 10));
        else if (const char *words = value_of(argv[i], "-dict="))
            dictionary = read_dictionary(words);
        else if (const char *prefix = value_of(argv[i], "-artifact_prefix="))
            kept_input = std::string(prefix) + "crash-input";
        else if (argv[i][0] != '-')
            paths.push_back(argv[i]);
    }
    keep_input_of_death();
    bool files_only = !paths.empty();
    for (const fs::path &path : paths) {
        const bool corpus = fs::is_directory(path);
        corpus ? run_corpus(path) : run_file(path);
        files_only = files_only && !corpus;
    }
    if (!files_only) run_made_up(runs, seed);
    return 0;
}
