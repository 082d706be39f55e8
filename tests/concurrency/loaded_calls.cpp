#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "tests/concurrency/module_calls.h"

template <class Type> static Type *symbol(void *library, const char *name)
{
    void *address = dlsym(library, name);
    if (address == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        abort();
    }
    return reinterpret_cast<Type *>(address);
}

ModuleCalls loaded_calls()
{
    void *library = dlopen(MLIST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        abort();
    }
    ModuleRecord record = {};
    snprintf(record.host_fqdn, sizeof(record.host_fqdn), "mail.example.jp");
    if (symbol<decltype(ModuleInitialize)>(library, "ModuleInitialize")(&record) != 1) abort();
    return {
        symbol<decltype(ModuleMain)>(library, "ModuleMain"),
        symbol<decltype(f_recover)>(library, "f_recover"),
        symbol<decltype(mlist_set_output)>(library, "mlist_set_output"),
        symbol<decltype(mlmbx_create)>(library, "mlmbx_create"),
        symbol<decltype(list_mbx_open)>(library, "list_mbx_open"),
        symbol<decltype(mlmbx_checknewmail)>(library, "mlmbx_checknewmail"),
        symbol<decltype(list_mbx_close)>(library, "list_mbx_close"),
        symbol<decltype(mlmbx_fetch)>(library, "mlmbx_fetch"),
        symbol<decltype(mlmbx_search)>(library, "mlmbx_search"),
        symbol<decltype(mlmbx_expunge)>(library, "mlmbx_expunge"),
        symbol<char>(library, "g_path_mlist"),
        symbol<char>(library, "g_mbox_list"),
    };
}
