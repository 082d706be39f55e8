/* A host in miniature: opens the built library as a mail server would and knows nothing of it but
   the public headers. */
#ifndef TESTS_ABI_HOST_H
#define TESTS_ABI_HOST_H

#include <filesystem>
#include <string>
#include <vector>

#include "mlist/admin.h"
#include "mlist/mlist.h"

struct Submitted {
    std::string file, content, sender;
    std::vector<std::string> recipients;
    std::string recipient_file; /* its content, when one was named */
    bool result_zeroed = false;
};

struct Delivered {
    int exit_code = -1;
    std::string reply, result;
    std::vector<Submitted> submitted;
};

class Host
{
  public:
    Host(); /* aborts the test when the library cannot be opened */
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    /* An exported function or variable, typed after the header's declaration of it. */
    template <typename Type> Type *symbol(const char *name) const
    {
        return reinterpret_cast<Type *>(address_of(name));
    }

    /* LIST@example.jp with two members that take postings, and an empty archive. */
    void make_list(const std::string &settings, const std::string &list = "mylist") const;

    /* Runs ModuleMain() on the message; arguments from slot 1 on.  From any thread. */
    Delivered deliver(const std::string &message, const std::vector<std::string> &arguments,
                      const std::string &submit_result = "") const;

    [[nodiscard]] std::string control(const std::string &name,
                                      const std::string &list = "mylist") const;
    [[nodiscard]] std::string box(const std::string &name,
                                  const std::string &list = "mylist") const;
    [[nodiscard]] const ModuleRecord &record() const { return record_; }
    [[nodiscard]] int initialized() const { return initialized_; }

  private:
    void *address_of(const char *name) const;

    void *library_ = nullptr;
    std::filesystem::path root_;
    ModuleRecord record_{};
    int initialized_ = 0;
};

std::string file_content(const std::string &path);
void write_content(const std::string &path, const std::string &content);

#endif
