/* What a crowd uses of the module, linked in or loaded at run time. */
#ifndef TESTS_CONCURRENCY_MODULE_CALLS_H
#define TESTS_CONCURRENCY_MODULE_CALLS_H

#include "mlist/mlist.h"

struct ModuleCalls {
    decltype(ModuleMain) *deliver;
    decltype(f_recover) *recover;
    decltype(mlist_set_output) *set_output;
    decltype(mlmbx_create) *create_archive;
    decltype(list_mbx_open) *open_archive;
    decltype(mlmbx_checknewmail) *check_archive;
    decltype(list_mbx_close) *close_archive;
    decltype(mlmbx_fetch) *fetch;
    decltype(mlmbx_search) *search;
    decltype(mlmbx_expunge) *expunge;
    char *control_root, *archive_root; /* 1,024 bytes each */
};

/* The module of this program. */
ModuleCalls linked_calls();

/* The built library, opened and initialised as a host does; aborts when that fails. */
ModuleCalls loaded_calls();

#endif
