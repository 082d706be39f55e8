/* Any bytes as a message: parsed and described, compared with the plain parser, and every number of
   its sections is one of bytes that the message has. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz/demand.h"
#include "mlist/mlist.h"
#include "tests/reference/mime_literal.h"

static void compare(const literal::Part *expected, const PartNode *part, int fd)
{
    demand((expected == nullptr) == (part == nullptr));
    if (part == nullptr) return;
    demand(expected->start == part->start && expected->header_length == part->header_length);
    demand(expected->body_length == part->body_length);
    demand(expected->children.size() == part->child_count);
    demand(part->lines_known == 0 || part->lines == expected->lines);
    compare(expected->enclosed.get(), part->enclosed, fd);
    for (uint32_t i = 0; i < part->child_count; ++i)
        compare(expected->children[i].get(), part->children[i], fd);
}

static size_t header_size(const std::string &message)
{
    if (message.compare(0, 2, "\r\n") == 0) return 2;
    const size_t blank = message.find("\r\n\r\n");
    return blank == std::string::npos ? 0 : blank + 4;
}

/* The plain parser knows no limits: only what nests and repeats little is compared. */
static bool is_small(const std::string &message)
{
    size_t types = 0;
    for (size_t at = 0; (at = message.find('/', at)) != std::string::npos; ++at)
        ++types;
    return types < 8 && message.size() < 4000;
}

static void use(const std::string &message, int fd)
{
    const uint32_t header = static_cast<uint32_t>(header_size(message));
    const uint32_t body = static_cast<uint32_t>(message.size()) - header;
    PartNode *tree = list_getmime(fd, 0, header, body);
    if (is_small(message)) compare(literal::parse(message, 0, header, body).get(), tree, fd);
    (void)list_getenvelope(fd, 0, header);
    list_getbody(fd, tree, 0);
    list_getbody(fd, tree, 1);
    list_freemime(tree);
    /* as an index that is damaged would have it */
    list_freemime(list_getmime(fd, header / 2, body, UINT32_MAX));
    list_freemime(list_getrfc822(fd, header / 2, UINT32_MAX));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int fd = memfd_create("message", MFD_CLOEXEC);
    static FILE *const nowhere = fopen("/dev/null", "we");
    mlist_set_output(nowhere);
    const std::string message(reinterpret_cast<const char *>(data), size);
    demand(ftruncate(fd, 0) == 0);
    demand(pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
    use(message, fd);
    return 0;
}
