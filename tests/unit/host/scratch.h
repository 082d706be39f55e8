/* A directory of a test's own, and files in it. */
#ifndef TESTS_UNIT_HOST_SCRATCH_H
#define TESTS_UNIT_HOST_SCRATCH_H

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

class Scratch
{
  public:
    Scratch()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "mlist-test-XXXXXX";
        path_ = mkdtemp(pattern.data());
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    ~Scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string path(const std::string &name = "") const
    {
        return name.empty() ? path_ : path_ + "/" + name;
    }
    std::string write(const std::string &name, std::string_view text) const
    {
        const std::string file = path(name);
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }

  private:
    std::string path_;
};

inline std::string read_file(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/* The names in a directory, sorted; none when it is missing. */
inline std::vector<std::string> names_in(const std::string &directory)
{
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(directory, ignored))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

#endif
