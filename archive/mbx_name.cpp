/* Names of the archive's files, and the small size and copy helpers of the driver. */
#include <errno.h>
#include <limits.h>
#include <string.h>

#include "archive/mbx.h"
#include "module/join.h"
#include "module/os.h"

int g_cluster_sz = 0;

int index_name(char *out, const char *path)
{
    return join_texts(out, MBX_NAME_SIZE, {path, "/#mix"});
}

/* Unsigned: a UID from 2^31 on must not give a name that begins with "-".  By hand: a search makes
   a name for every message. */
void uid_text(char *out, uint32_t uid)
{
    char digits[UID_TEXT_SIZE];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + uid % 10);
        uid /= 10;
    } while (uid != 0);
    while (count > 0)
        *out++ = digits[--count];
    *out = '\0';
}

int message_name(char *out, const char *path, uint32_t uid)
{
    char name[UID_TEXT_SIZE];
    uid_text(name, uid);
    return join_texts(out, MBX_NAME_SIZE, {path, "/#msg/", name});
}

int join_name(char *out, const char *directory, const char *name)
{
    return join_texts(out, MBX_NAME_SIZE, {directory, "/", name});
}

int side_name(char *out, const char *name, const char *ending)
{
    return join_texts(out, MBX_NAME_SIZE, {name, ending});
}

char *mlmbx_idxname(const char *path, int mode)
{
    char *buffer = thread_context()->index_name;
    if (mode == 1) (void)index_name(buffer, path); /* too long: empty, errno tells */
    return buffer;
}

char *list_mbx_idxname(const char *path, int mode)
{
    return mlmbx_idxname(path, mode);
}

char *list_mbx_uidname(const char *path, uint32_t uid)
{
    char *buffer = thread_context()->index_name;
    (void)message_name(buffer, path, uid); /* too long: empty, errno tells */
    return buffer;
}

int32_t stat_mtime(const char *path)
{
    struct stat status;
    if (os->stat(path, &status) < 0) return -1;
    return static_cast<int32_t>(status.st_mtime);
}

void sncpy(char *to, const char *from, size_t size)
{
    if (size == 0) return;
    const size_t length = strnlen(from, size - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

int list_realsize(int size)
{
    constexpr int unit = 1024;
    if (size <= unit) return unit;
    if (size > INT_MAX / unit * unit) return INT_MAX / unit * unit;
    return (size + unit - 1) / unit * unit;
}

int size2cluster(int size)
{
    if (size == 0 || size == 1) return size;
    const int cluster = g_cluster_sz > 0 ? g_cluster_sz : 1024;
    return static_cast<int>((static_cast<int64_t>(size) - 1) / cluster + 1);
}
