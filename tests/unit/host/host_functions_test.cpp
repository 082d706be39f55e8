/* The real module in a process that exports its functions, as in the daemon. */
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>

#include "host/base/fd.h"
#include "host/mlistd/modhost/library.h"
#include "mlist/fetch.h"
#include "mlog.h"
#include "tests/unit/host/scratch.h"

namespace
{

constexpr char message[] = "Date: Sun, 15 Nov 2026 09:13:57 +0900\r\n"
                           "From: Alice <alice@example.net>\r\n"
                           "Subject: hello\r\n"
                           "\r\n"
                           "body\r\n";

/* What the module printed on this thread. */
class Printed
{
  public:
    explicit Printed(const ModuleLibrary &module)
        : module_(module), stream_(open_memstream(&text_, &size_))
    {
        module_.set_output(stream_);
    }
    ~Printed()
    {
        module_.set_output(discarding_stream());
        fclose(stream_);
        free(text_);
    }
    std::string text()
    {
        fflush(stream_);
        return {text_, size_};
    }

  private:
    const ModuleLibrary &module_;
    char *text_ = nullptr;
    size_t size_ = 0;
    FILE *stream_;
};

class HostFunctions : public testing::Test
{
  protected:
    void SetUp() override
    {
        mlog_set_target("none");
        auto loaded = load_module(MODULE_FILE);
        ASSERT_TRUE(loaded) << loaded.error().text;
        module = *loaded;
        Settings settings = default_settings();
        ASSERT_TRUE(initialize_module(module, settings));
        library = dlopen(MODULE_FILE, RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(library, nullptr);
        box = scratch.path("box");
        const std::string source = scratch.write("mail", message);
        ASSERT_EQ(bind<decltype(&mlmbx_create)>("mlmbx_create")(box.c_str()), 1);
        const auto append = bind<decltype(&list_mbx_append)>("list_mbx_append");
        IndexHandle *batch = append(box.c_str(), NO_INDEX_HANDLE, source.c_str(), 0,
                                    sizeof(message) - 1 - 6, sizeof(message) - 1, 0);
        ASSERT_NE(batch, NO_INDEX_HANDLE);
        append(nullptr, batch, nullptr, 0, 0, 0, 0);
    }

    template <typename Function> Function bind(const char *name)
    {
        return reinterpret_cast<Function>(dlsym(library, name));
    }

    Scratch scratch;
    ModuleLibrary module{};
    void *library = nullptr;
    std::string box;
};

} // namespace

TEST_F(HostFunctions, AreFoundInTheProcess)
{
    for (const char *name : {"disk2memory", "disk2stdout", "g_debug"})
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
}

TEST_F(HostFunctions, ReadAHeaderForTheModuleAndGoBackWhereTheyCameFrom)
{
    MailboxHandle *handle =
        bind<decltype(&list_mbx_open)>("list_mbx_open")(box.c_str(), MAILBOX_QUIET);
    ASSERT_NE(handle, nullptr);
    Printed printed(module);
    char item[] = "ENVELOPE";
    char *items[] = {item, nullptr};
    bind<decltype(&mlmbx_fetch)>("mlmbx_fetch")(handle, 1, items);
    EXPECT_NE(printed.text().find("\"alice\" \"example.net\""), std::string::npos)
        << printed.text();
    bind<decltype(&list_mbx_close)>("list_mbx_close")(handle);
}

TEST_F(HostFunctions, CopyAMessageToTheThreadsSink)
{
    MailboxHandle *handle =
        bind<decltype(&list_mbx_open)>("list_mbx_open")(box.c_str(), MAILBOX_QUIET);
    ASSERT_NE(handle, nullptr);
    Printed printed(module);
    char item[] = "RFC822";
    char *items[] = {item, nullptr};
    bind<decltype(&mlmbx_fetch)>("mlmbx_fetch")(handle, 1, items);
    EXPECT_NE(printed.text().find(message), std::string::npos) << printed.text();
    bind<decltype(&list_mbx_close)>("list_mbx_close")(handle);
}

TEST_F(HostFunctions, FillUpWhatAFileLacks)
{
    const Fd file(open(scratch.write("short", "abc").c_str(), O_RDONLY | O_CLOEXEC));
    const auto to_sink =
        reinterpret_cast<int (*)(int, off_t, size_t)>(dlsym(RTLD_DEFAULT, "disk2stdout"));
    const auto to_memory =
        reinterpret_cast<char *(*)(int, off_t, size_t)>(dlsym(RTLD_DEFAULT, "disk2memory"));
    Printed printed(module);
    EXPECT_EQ(to_sink(file.get(), 1, 5), 0);
    EXPECT_EQ(printed.text(), "bc   ");
    char *text = to_memory(file.get(), 1, 5);
    EXPECT_STREQ(text, "bc");
    free(text);
    EXPECT_EQ(to_memory(-1, 0, 5), nullptr);
    EXPECT_EQ(to_sink(-1, 0, 5), -1);
}
