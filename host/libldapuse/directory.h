/* Where configuration and texts come from: one row of functions for each kind of place. */
#ifndef HOST_LIBLDAPUSE_DIRECTORY_H
#define HOST_LIBLDAPUSE_DIRECTORY_H

#include <stdint.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

/* The SMTP service's configuration; what is not configured stays empty. */
struct ServiceConf {
    std::array<std::optional<int32_t>, 9> numbers;
    std::optional<std::string> text;
    std::optional<int32_t> log_level;
};

enum class TextKind { welcome, help };

/* Results are those of ldapuse.h.  Called from any thread; no call blocks without bound. */
struct Backend {
    const char *name;
    int (*services)(const std::string &place, ServiceConf &conf_out);
    /* At most size bytes of a list's text from offset on; end_out: nothing follows them. */
    int (*text)(const std::string &place, TextKind kind, std::string_view domain,
                std::string_view list, int64_t offset, size_t size, std::string &text_out,
                bool &end_out);
};

extern const Backend files_backend;

/* The backend in use and its place; no backend means none is configured. */
struct Directory {
    const Backend *backend = nullptr;
    std::string place;
};
Directory current_directory();
void choose_directory(const Directory &directory);

#endif
