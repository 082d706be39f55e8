/* Module-wide variables, here at the bottom because every layer reads some of them. */
#include "module/module_vars.h"

#include "mlist/mlist.h"

extern "C" {
ListSettings g_mlit;
char g_path_mlist[1024];
char g_mbox_list[1024];
int32_t add_resent_header;
int32_t force_remove_bracket;
int32_t ml_maxmsgsize;
int32_t ml_webpasswd;
}

char g_mlfqdn[256];
int32_t g_max_mllist;
const char *local_conf_path = "/opt/qelv/mail/local.conf";
