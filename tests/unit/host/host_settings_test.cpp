/* The configuration file: what it may say, and the one line that every mistake gets. */
#include <gtest/gtest.h>

#include <fstream>

#include "host/base/endpoint.h"
#include "host/base/settings.h"
#include "tests/unit/host/scratch.h"

static const struct {
    const char *label, *text, *error;
} mistakes[] = {
    {"an unknown table", "[paths]\n[pahts]\ndata = \"/d\"\n",
     "f.toml:2: pahts: there is no such table"},
    {"a key outside of tables", "data = \"/d\"\n", "f.toml:1: data: there is no such table"},
    {"a table's name as a key", "paths = 1\n", "f.toml:1: paths: must be a table"},
    {"an unknown key", "[lmtp]\n\nlisten_on = \"x\"\n",
     "f.toml:3: lmtp.listen_on: there is no such key"},
    {"a number for a text", "[paths]\ndata = 7\n", "f.toml:2: paths.data: must be a text"},
    {"a text for a number", "[process]\nmodule_gate = \"many\"\n",
     "f.toml:2: process.module_gate: must be a number"},
    {"a number out of range", "[process]\nmodule_gate = 0\n",
     "f.toml:2: process.module_gate: must lie between 1 and 256"},
    {"a negative number", "[lmtp]\nsessions = -1\n",
     "f.toml:2: lmtp.sessions: must lie between 1 and 10000"},
    {"a fraction", "[lmtp]\nsessions = 1.5\n", "f.toml:2: lmtp.sessions: must be a number"},
    {"a size with an unknown unit", "[lmtp]\nmessage_size = \"5X\"\n",
     "f.toml:2: lmtp.message_size: must be a size, such as 1048576 or \"50M\""},
    {"a size beyond all numbers", "[lmtp]\nmessage_size = \"99999999999999G\"\n",
     "f.toml:2: lmtp.message_size: must be a size, such as 1048576 or \"50M\""},
    {"a time that is none", "[lmtp]\ntimeout = \"soon\"\n",
     "f.toml:2: lmtp.timeout: must be a time, such as 90 (seconds) or \"5m\""},
    {"an empty path where one is needed", "[paths]\ndata = \"\"\n",
     "f.toml:2: paths.data: must not be empty"},
    {"a control character", "[process]\nuser = \"a\\u0001b\"\n",
     "f.toml:2: process.user: has a control character"},
    {"a listener without a port", "[lmtp]\nlisten = \"127.0.0.1\"\n",
     "f.toml:2: lmtp.listen: \"127.0.0.1\" must be \"ADDRESS:PORT\" or \"unix:/PATH\""},
    {"a port out of range", "[lmtp]\nlisten = [\"127.0.0.1:24\", \"127.0.0.1:65536\"]\n",
     "f.toml:2: lmtp.listen: \"127.0.0.1:65536\" must be \"ADDRESS:PORT\" or \"unix:/PATH\""},
    {"a list of numbers", "[lmtp]\nlisten = [1, 2]\n",
     "f.toml:2: lmtp.listen: must be a text or a list of texts"},
    {"no control suffix at all", "[addresses]\ncontrol_suffixes = []\n",
     "f.toml:2: addresses.control_suffixes: must have 1 to 16 entries"},
    {"the owner's suffix for commands", "[addresses]\ncontrol_suffixes = \"-owner\"\n",
     "f.toml:2: addresses.control_suffixes: \"-owner\" must be a separator and a word, such as "
     "\"-ctl\", and not \"-owner\""},
    {"a suffix with a slash", "[addresses]\ncontrol_suffixes = \"-a/b\"\n",
     "f.toml:2: addresses.control_suffixes: \"-a/b\" must be a separator and a word, such as "
     "\"-ctl\", and not \"-owner\""},
    {"an unknown relay", "[relay]\ntarget = \"pigeon\"\n",
     "f.toml:2: relay.target: must be \"outbox\" or \"smtp:HOST:PORT\""},
    {"an unknown log", "[log]\ntarget = \"file:log\"\n",
     "f.toml:2: log.target: must be \"stderr\", \"file:/PATH\", \"syslog\", \"journal\" or "
     "\"none\""},
    {"a host name with a blank", "[process]\nhostname = \"a b\"\n",
     "f.toml:2: process.hostname: must be a host name"},
};

TEST(HostSettings, EveryMistakeNamesFileLineAndKey)
{
    for (const auto &row : mistakes) {
        const auto settings = parse_settings(row.text, "f.toml");
        ASSERT_FALSE(settings) << row.label;
        EXPECT_EQ(settings.error().text, row.error) << row.label;
    }
}

TEST(HostSettings, ABrokenLineIsNamedWithTheKeyInIt)
{
    for (const char *text : {"[lmtp]\nsessions =\n", "[lmtp]\nsessions = \"a\nb\"\n",
                             "[lmtp]\nsessions = 1 2\n", "[lmtp]\nsessions = 5\nsessions = 6\n"}) {
        const auto settings = parse_settings(text, "f.toml");
        ASSERT_FALSE(settings) << text;
        EXPECT_TRUE(settings.error().text.starts_with("f.toml:2: sessions") ||
                    settings.error().text.starts_with("f.toml:3: sessions"))
            << settings.error().text;
        EXPECT_EQ(settings.error().text.find('\n'), std::string::npos);
    }
}

TEST(HostSettings, AMissingFileIsAnErrorThatNamesIt)
{
    const auto settings = read_settings("/nonexistent/mlistd.toml");
    ASSERT_FALSE(settings);
    EXPECT_EQ(settings.error().text, "/nonexistent/mlistd.toml: No such file or directory");
    EXPECT_FALSE(read_settings("/tmp"));
}

TEST(HostSettings, WithoutAFileEverythingHasAValue)
{
    const Settings settings = default_settings();
    EXPECT_EQ(settings.control_root, "/var/lib/mlistd/control");
    EXPECT_EQ(settings.archive_root, "/var/lib/mlistd/archive");
    EXPECT_EQ(settings.spool_directory, "/var/lib/mlistd/spool");
    EXPECT_EQ(settings.lmtp_listen, std::vector<std::string>{"127.0.0.1:2424"});
    EXPECT_FALSE(host_name(settings).empty());
    EXPECT_EQ(owners_path(settings, "mylist", "example.jp"),
              "/var/lib/mlistd/conf/lists/example.jp/mylist/owners");
}

TEST(HostSettings, RelativePathsAreTakenFromTheFilesDirectory)
{
    const auto settings = parse_settings(
        "[paths]\ndata = \"data\"\ncontrol = \"../c\"\nmodule = \"mlist.so.0\"\n", "/etc/x/f.toml");
    ASSERT_TRUE(settings) << settings.error().text;
    EXPECT_EQ(settings->data_directory, "/etc/x/data");
    EXPECT_EQ(settings->control_root, "/etc/c");
    EXPECT_EQ(settings->archive_root, "/etc/x/data/archive");
    EXPECT_EQ(settings->module, "mlist.so.0");
}

TEST(HostSettings, ValuesMayCarryUnits)
{
    const auto settings =
        parse_settings("[lmtp]\nmessage_size = \"2M\"\ntimeout = \"90s\"\ndata_timeout = 77\n"
                       "listen = [\"unix:/run/l\", \"[::1]:24\"]\nsocket_mode = 0o600\n"
                       "[relay]\nmaximum_age = \"3d\"\ntarget = \"smtp:127.0.0.1:25\"\n",
                       "f.toml");
    ASSERT_TRUE(settings) << settings.error().text;
    EXPECT_EQ(settings->lmtp_message_size, 2 * 1024 * 1024);
    EXPECT_EQ(settings->lmtp_timeout, 90);
    EXPECT_EQ(settings->lmtp_data_timeout, 77);
    EXPECT_EQ(settings->relay_maximum_age, 3 * 86400);
    EXPECT_EQ(settings->lmtp_socket_mode, 0600);
    EXPECT_EQ(settings->lmtp_listen.size(), 2u);
}

TEST(HostSettings, WhatIsPrintedReadsBackTheSame)
{
    Settings settings = default_settings();
    settings.lmtp_listen = {"unix:/run/a", "127.0.0.1:9"};
    settings.hostname = "lists.example.jp";
    settings.lmtp_message_size = 12345;
    const std::string text = print_settings(settings);
    const auto again = parse_settings(text, "f.toml");
    ASSERT_TRUE(again) << again.error().text << "\n" << text;
    EXPECT_EQ(print_settings(*again), text);
    for (const SettingKey &key : setting_keys())
        EXPECT_NE(text.find(std::string("\n") + key.name + " = "), std::string::npos) << key.name;
}

static const struct {
    const char *text;
    const char *host, *port, *path;
} endpoints[] = {
    {"127.0.0.1:2424", "127.0.0.1", "2424", ""},
    {":24", "127.0.0.1", "24", ""},
    {"[::1]:24", "::1", "24", ""},
    {"localhost:1", "localhost", "1", ""},
    {"unix:/run/lmtp", "", "", "/run/lmtp"},
};

TEST(HostSettings, EndpointsAreAddressesWithPortsOrUnixPaths)
{
    for (const auto &row : endpoints) {
        const auto endpoint = parse_endpoint(row.text);
        ASSERT_TRUE(endpoint) << row.text;
        EXPECT_EQ(endpoint->host, row.host) << row.text;
        EXPECT_EQ(endpoint->port, row.port) << row.text;
        EXPECT_EQ(endpoint->path, row.path) << row.text;
    }
    for (const char *text : {"", "24", "::1:24", "host:", "host:0", "host:70000", "host:2x",
                             "a b:1", "unix:run", "unix:/", "unix:"})
        EXPECT_FALSE(parse_endpoint(text)) << text;
    EXPECT_FALSE(parse_endpoint("unix:/" + std::string(200, 'x')));
}
