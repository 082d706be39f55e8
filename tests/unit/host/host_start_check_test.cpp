/* Lists are checked before they take mail, once; what a check or a delivery does to the descriptors
   that are placeholders is undone before anything else runs. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "host/mlistd/edge.h"
#include "host/mlistd/start_check.h"
#include "mlog.h"
#include "tests/unit/host/scratch.h"

namespace
{

/* As the module does it when the sync of a copy fails: the number is that of the error. */
void close_placeholder()
{
    close(LAST_PLACEHOLDER);
}

bool placeholder_is_open()
{
    return fcntl(LAST_PLACEHOLDER, F_GETFD) >= 0;
}

/* What the module does, and what was seen of it. */
struct Module {
    bool closes_in_check = false, closes_in_delivery = false, derives = true;
    int checks = 0, deliveries = 0;
    bool open_at_checks = true, open_at_delivery = false;
} module_does;

int some_session;

const ModuleLibrary small_module = [] {
    ModuleLibrary module{};
    module.set_output = [](FILE *) {};
    module.session_open = [](const char *, const char *) {
        ++module_does.checks;
        return reinterpret_cast<ListSession *>(&some_session);
    };
    module.session_close = [](ListSession *) {};
    module.recover = [](const char *) {
        module_does.open_at_checks &= placeholder_is_open();
        if (!module_does.closes_in_check) return 0;
        close_placeholder();
        return -1;
    };
    module.derive = [](ListSession *, const char *) {
        errno = EIO;
        return module_does.derives ? 0 : -1;
    };
    module.main = [](DeliveryRequest *) -> int {
        ++module_does.deliveries;
        module_does.open_at_delivery = placeholder_is_open();
        if (module_does.closes_in_delivery) close_placeholder();
        return MLIST_EXIT_ACCEPTED;
    };
    return module;
}();

class CheckedListsTest : public testing::Test
{
  protected:
    CheckedListsTest()
    {
        mlog_set_target("none");
        settings.control_root = scratch.path("control");
        scratch.write("control/d/one/init", "");
        module_does = Module();
        placeholders = std::move(*Placeholders::take());
    }

    int deliver()
    {
        return edge.deliver({Role::post, "one", "d"}, {scratch.path("mail"), "a@x", {}, 10}).code;
    }

    Scratch scratch;
    Settings settings;
    Placeholders placeholders;
    ModuleHost host{small_module, settings, placeholders,
                    [](const std::string &, const std::string &, std::span<const std::string>,
                       const std::string &) -> Result<std::string> { return std::string("1"); }};
    CheckedLists lists{host};
    Edge edge{host, lists};
};

} // namespace

TEST_F(CheckedListsTest, APlaceholderThatACheckClosedIsBackBeforeTheModuleRuns)
{
    module_does.closes_in_check = true;
    EXPECT_EQ(250, deliver());
    EXPECT_EQ(1, module_does.checks);
    EXPECT_EQ(1, module_does.deliveries);
    EXPECT_TRUE(module_does.open_at_checks) << "of the next file";
    EXPECT_TRUE(module_does.open_at_delivery);
}

TEST_F(CheckedListsTest, APlaceholderIsBackAfterACheckThatFailed)
{
    module_does.closes_in_check = true;
    module_does.derives = false;
    EXPECT_EQ(451, deliver());
    EXPECT_EQ(0, module_does.deliveries);
    EXPECT_TRUE(placeholder_is_open());
}

TEST_F(CheckedListsTest, APlaceholderThatTheModuleClosedIsBackAfterwards)
{
    module_does.closes_in_delivery = true;
    EXPECT_EQ(250, deliver());
    EXPECT_TRUE(placeholder_is_open());
}

TEST_F(CheckedListsTest, AListInOrderIsHandedToTheModuleWithoutALook)
{
    EXPECT_EQ(250, deliver());
    close_placeholder(); /* behind the daemon's back: whoever looks would put it right */
    EXPECT_EQ(250, deliver());
    EXPECT_EQ(1, module_does.checks);
    EXPECT_FALSE(module_does.open_at_delivery);
    EXPECT_TRUE(placeholder_is_open()) << "after every delivery somebody looks";
}

TEST_F(CheckedListsTest, ADoubtedListIsCheckedOnceMore)
{
    lists.check_all();
    EXPECT_EQ(1, module_does.checks);
    lists.doubt({Role::post, "one", "d"});
    EXPECT_EQ(250, deliver());
    EXPECT_EQ(250, deliver());
    EXPECT_EQ(2, module_does.checks);
}

TEST_F(CheckedListsTest, AListThatResistsIsCheckedUntilItIsInOrder)
{
    module_does.derives = false;
    EXPECT_EQ(451, deliver());
    EXPECT_EQ(451, deliver());
    EXPECT_EQ(2, module_does.checks);
    module_does.derives = true;
    EXPECT_EQ(250, deliver());
    EXPECT_EQ(250, deliver());
    EXPECT_EQ(3, module_does.checks);
}
