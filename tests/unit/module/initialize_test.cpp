/* ModuleInitialize().  Each case is a process of its own under ctest. */
#include <gtest/gtest.h>
#include <string.h>

#include "mlist/mlist.h"
#include "module/module_vars.h"
#include "module/unix_sv.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

TEST(ModuleInitialize, IntroducesTheModuleAndFixesRootsAndDefaults)
{
    local_conf_path = "/nonexistent/local.conf";
    ModuleRecord record;
    memset(&record, 'x', sizeof(record));
    strcpy(record.host_fqdn, "ml.example.jp");
    EXPECT_EQ(1, ModuleInitialize(&record));
    EXPECT_EQ(0x00010000u, record.interface_word);
    EXPECT_STREQ("mlist", record.module_name);
    EXPECT_STREQ("ml.example.jp", g_mlfqdn);
    EXPECT_STREQ("/home/mail/#mlcontrol", g_path_mlist);
    EXPECT_STREQ("/home/mail/#listbox", g_mbox_list);
    EXPECT_EQ(200, g_max_mllist);
    EXPECT_EQ(10, g_logh.level);
    EXPECT_EQ(8, g_logh.facility);
    EXPECT_EQ(2047u, g_mlit.command_mask);
    EXPECT_EQ(1000, g_mlit.journal);
    EXPECT_EQ(500, g_mlit.summary_limit);
    EXPECT_EQ(780, g_mlit.digest_time);
    EXPECT_STREQ("[%M:%S]", g_mlit.subject_format);
    EXPECT_EQ(0, add_resent_header + force_remove_bracket + ml_maxmsgsize + ml_webpasswd);
}

TEST(ModuleInitialize, TakesFourSwitchesFromTheLocalConfiguration)
{
    TempDir dir;
    const std::string file = dir / "local.conf";
    write_file(file, "ML_RESENT_HEADER=1\nml_remove_bracket=2\nml_maxmsgsize=3\nml_webpasswd=4\n");
    local_conf_path = file.c_str();
    ModuleRecord record = {};
    ModuleInitialize(&record);
    EXPECT_EQ(1, add_resent_header);
    EXPECT_EQ(2, force_remove_bracket);
    EXPECT_EQ(3, ml_maxmsgsize);
    EXPECT_EQ(4, ml_webpasswd);
}

TEST(ModuleInitialize, TakesTheLogLevelOfTheServiceConfiguration)
{
    local_conf_path = "/nonexistent/local.conf";
    service_log_level = 3;
    ModuleRecord record = {};
    ModuleInitialize(&record);
    EXPECT_EQ(3, g_logml_level);
    EXPECT_EQ(3, g_logh.level);
}

TEST(ModuleInitialize, ASecondCallLeavesTheRootsThatTheHostMoved)
{
    local_conf_path = "/nonexistent/local.conf";
    ModuleRecord record = {};
    ModuleInitialize(&record);
    const pthread_key_t key = tlskey_mlist;
    strcpy(g_path_mlist, "/elsewhere");
    record = {};
    EXPECT_EQ(1, ModuleInitialize(&record));
    EXPECT_STREQ("mlist", record.module_name);
    EXPECT_STREQ("/elsewhere", g_path_mlist);
    EXPECT_EQ(key, tlskey_mlist);
}

TEST(ModuleInitialize, AHostNameThatFillsItsFieldIsCut)
{
    local_conf_path = "/nonexistent/local.conf";
    ModuleRecord record;
    memset(&record, 'h', sizeof(record));
    ModuleInitialize(&record);
    EXPECT_EQ(std::string(255, 'h'), g_mlfqdn);
}
