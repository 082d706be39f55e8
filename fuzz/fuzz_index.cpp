/* Any bytes as the index of a mailbox: opened, checked, expunged, appended to.  Such an index is
   used if it can be one, or made anew from the messages; it never leads outside of the mailbox, to
   a message's loss by an append, or to an index that the next open refuses.
   An even first byte: the bytes behind it are the index; an odd one: they are laid over a good one,
   behind an offset each. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include "fuzz/small_archive.h"
#include "mlist/mlist.h"

static const std::string message = "Subject: a\r\n\r\ntext\r\n";

static std::string message_file(uint32_t uid)
{
    return fuzz_mailbox() + "/#msg/" + std::to_string(uid);
}

static std::string make_good_index()
{
    for (int i = 0; i < 3; ++i)
        demand(append_message(message, 0));
    return read_text(fuzz_mailbox() + "/#mix");
}

static std::string index_of(const uint8_t *data, size_t size, const std::string &good)
{
    if (size == 0) return "";
    if (data[0] % 2 == 0) return std::string(reinterpret_cast<const char *>(data) + 1, size - 1);
    std::string index = good;
    for (size_t i = 1; i + 1 < size; i += 2)
        index[data[i] % index.size()] = static_cast<char>(data[i + 1]);
    return index;
}

/* What the view says is in order, whatever the file said. */
static void check_view(const MailboxHandle *handle)
{
    const uint32_t count = handle->index[0].header_size;
    demand(count >= 1);
    for (uint32_t s = 1; s < count; ++s)
        demand(handle->index[s].uid > handle->index[s - 1].uid || s == 1);
}

static MailboxHandle *open_box()
{
    MailboxHandle *handle = list_mbx_open(fuzz_mailbox().c_str(), MAILBOX_QUIET);
    if (handle != nullptr) check_view(handle);
    return handle;
}

/* Messages that the view has, and their texts. */
static std::map<uint32_t, std::string> texts_of(const MailboxHandle *handle)
{
    std::map<uint32_t, std::string> texts;
    for (uint32_t s = 1; s < handle->index[0].header_size && s < 100; ++s)
        texts[handle->index[s].uid] = read_text(message_file(handle->index[s].uid));
    return texts;
}

static void use(MailboxHandle *handle)
{
    char flags[] = "FLAGS", structure[] = "BODYSTRUCTURE", text[] = "BODY.PEEK[]";
    char *items[] = {flags, structure, text, nullptr};
    mlmbx_fetch(handle, 1, items);
    demand(mlmbx_search(handle, "OR SEEN (TEXT text SENTSINCE 1-Jan-2000)", nullptr, 1) == 1);
    const std::map<uint32_t, std::string> before = texts_of(handle);
    (void)append_message(message, 0); /* refused when the numbers are used up */
    for (const auto &[uid, old_text] : before)
        demand(read_text(message_file(uid)) == old_text);
    mlmbx_checknewmail2(handle);
    mlmbx_checknewmail(handle);
    mlmbx_expunge(handle, 1);
    check_view(handle);
    list_mbx_close(handle);
}

/* The mailbox as it was. */
static void restore(const std::string &good)
{
    const std::string &box = fuzz_mailbox();
    MailboxHandle *handle = open_box();
    demand(handle != nullptr); /* whatever it was, it is an index now */
    for (uint32_t s = 1; s < handle->index[0].header_size; ++s)
        (void)unlink(message_file(handle->index[s].uid).c_str());
    list_mbx_close(handle);
    for (uint32_t uid = 1; uid <= 3; ++uid)
        write_text(message_file(uid), message);
    write_text(box + "/#mix", good);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FILE *const nowhere = fopen("/dev/null", "we");
    mlist_set_output(nowhere);
    static const std::string good = make_good_index();
    if (size > 1000) return 0;
    write_text(fuzz_mailbox() + "/#mix", index_of(data, size, good));
    MailboxHandle *handle = open_box();
    if (handle == nullptr) handle = open_box(); /* the first one made it anew */
    demand(handle != nullptr);
    use(handle);
    restore(good);
    return 0;
}
