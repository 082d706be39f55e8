#include "store/file.h"
#include "tests/concurrency/module_calls.h"

ModuleCalls linked_calls()
{
    default_settings(&g_mlit);
    return {ModuleMain,    f_recover,          mlist_set_output, mlmbx_create,
            list_mbx_open, mlmbx_checknewmail, list_mbx_close,   mlmbx_fetch,
            mlmbx_search,  mlmbx_expunge,      g_path_mlist,     g_mbox_list};
}
