/* ModuleInitialize(): what the process does once. */
#include <pthread.h>
#include <string.h>
#include <time.h>

#include "ldapuse.h"
#include "mlist/mlist.h"
#include "module/module_vars.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "store/file.h"

static void open_log()
{
    mlog_init(8, &g_logh, 0);
    mlog_set_loglevel(&g_logh, g_logml_level);
}

static void introduce_module(ModuleRecord *record)
{
    memcpy(g_mlfqdn, record->host_fqdn, sizeof(g_mlfqdn) - 1);
    g_mlfqdn[sizeof(g_mlfqdn) - 1] = '\0';
    strcpy(record->module_name, "mlist");
}

/* Of the service configuration only the log level is of use here. */
static void read_log_level()
{
    int32_t number[9] = {};
    char text[KYT_SERVICE_TEXT_SIZE] = {};
    (void)kyt_smtp_servicesconf_search(&number[0], &number[1], &number[2], text, &number[3],
                                       &number[4], &number[5], &number[6], &number[7], &number[8],
                                       &g_logml_level);
    mlog_set_loglevel(&g_logh, g_logml_level);
}

static int get_path_mlist()
{
    strcpy(g_path_mlist, "/home/mail/#mlcontrol");
    strcpy(g_mbox_list, "/home/mail/#listbox");
    return 0;
}

static void read_switches()
{
    int32_t values[12];
    local_conf2(values);
    add_resent_header = values[8];
    force_remove_bracket = values[9];
    ml_maxmsgsize = values[10];
    ml_webpasswd = values[11];
}

static pthread_mutex_t initialize_lock = PTHREAD_MUTEX_INITIALIZER;
static bool initialized;

int ModuleInitialize(ModuleRecord *record)
{
    pthread_mutex_lock(&initialize_lock);
    if (!initialized) {
        tzset(); /* localtime_r() need not do it on the delivering threads */
        open_log();
        (void)kyt_conf_init(0);
    }
    record->interface_word = MLIST_INTERFACE_WORD;
    create_thread_key();
    introduce_module(record);
    /* What deliveries may be reading by now is written by the first call alone. */
    if (!initialized) {
        read_log_level();
        (void)get_path_mlist();
        default_settings(&g_mlit);
        g_max_mllist = 200;
        read_switches();
        initialized = true;
    }
    pthread_mutex_unlock(&initialize_lock);
    return 1;
}
