#include "host/mlistd/modhost/library.h"

#include <cstring>
#include <dlfcn.h>
#include <filesystem>

#include "host/mlistd/modhost/functions.h"

namespace
{

/* Where each name goes. */
struct Binding {
    const char *name;
    void (*set)(ModuleLibrary &module, void *symbol);
};

#define BIND(member, name)                                                                         \
    {                                                                                              \
        name, [](ModuleLibrary &module, void *symbol) {                                            \
            module.member = reinterpret_cast<decltype(module.member)>(symbol);                     \
        }                                                                                          \
    }

const Binding bindings[] = {
    BIND(initialize, "ModuleInitialize"),
    BIND(main, "ModuleMain"),
    BIND(recover, "f_recover"),
    BIND(set_output, "mlist_set_output"),
    BIND(get_output, "mlist_get_output"),
    BIND(session_open, "mlist_session_open"),
    BIND(session_close, "mlist_session_close"),
    BIND(derive, "mlist_derive"),
    BIND(read_settings, "get_mlini"),
    BIND(default_settings, "g_mlit"),
    BIND(control_root, "g_path_mlist"),
    BIND(archive_root, "g_mbox_list"),
};

#undef BIND

std::string loader_text()
{
    const char *text = dlerror();
    return text != nullptr ? text : "unknown error";
}

Result<void> place(char (&root)[1024], const std::string &path)
{
    if (path.size() >= sizeof(root)) return Error{path + ": the path is too long", ENAMETOOLONG};
    memcpy(root, path.c_str(), path.size() + 1);
    return {};
}

ssize_t discard(void *, const char *, size_t size)
{
    return static_cast<ssize_t>(size);
}

} // namespace

Result<ModuleLibrary> load_module(const std::string &path)
{
    /* Everything bound now: a name that is missing must show at the start, not at the first mail.
       The module's own names stay among themselves. */
    void *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return Error{"cannot load the module: " + loader_text(), 0};
    ModuleLibrary module{};
    for (const Binding &binding : bindings) {
        void *symbol = dlsym(library, binding.name);
        if (symbol == nullptr) return Error{path + ": no module: " + loader_text(), 0};
        binding.set(module, symbol);
    }
    return module;
}

std::string module_file(const Settings &settings)
{
    constexpr const char *name = "mlist.so.0";
    if (!settings.module.empty()) return settings.module;
    std::error_code failure;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", failure);
    const auto beside = program.parent_path() / "../lib" / name;
    if (!failure && std::filesystem::exists(beside, failure)) return beside.lexically_normal();
    return name;
}

Result<void> initialize_module(const ModuleLibrary &module, const Settings &settings)
{
    ModuleRecord record{};
    const std::string name = host_name(settings);
    memcpy(record.host_fqdn, name.c_str(), std::min(name.size(), sizeof(record.host_fqdn) - 1));
    set_sink_accessor(module.get_output);
    module.set_output(discarding_stream());
    const int answer = module.initialize(&record);
    if (answer != 1 || record.interface_word != MLIST_INTERFACE_WORD ||
        strncmp(record.module_name, "mlist", sizeof(record.module_name)) != 0)
        return Error{"the module does not speak this host's interface", 0};
    const auto control = place(*module.control_root, settings.control_root);
    return control ? place(*module.archive_root, settings.archive_root) : control;
}

FILE *discarding_stream()
{
    static FILE *const stream = [] {
        const cookie_io_functions_t functions{nullptr, discard, nullptr, nullptr};
        FILE *made = fopencookie(nullptr, "w", functions);
        return made != nullptr ? made : stdout; /* no memory at the start: what stdout is */
    }();
    return stream;
}
