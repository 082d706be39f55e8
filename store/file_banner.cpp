/* Banners: the list's texts above and below the body of a posting. */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "codec/conv.h"
#include "module/guards.h"
#include "store/fail_text.h"
#include "store/file.h"
#include "store/ntio.h"

struct Banner {
    const char *file[3]; /* by content kind; null: none */
    FailText recover, write, read;
};

static const Banner top_banner = {
    {nullptr, "msg/bnrtop.txt", "msg/bnrtopj.txt"},
    {1, 258, "mlname=%s insert_banner_t recover error %m [%s]"},
    {1, 259, "mlname=%s insert_banner_t fputs error %m [%s]"},
    {1, 260, "mlname=%s insert_banner_t fgets error %m [%s]"},
};
static const Banner bottom_banner = {
    {nullptr, "msg/bnrbtm.txt", "msg/bnrbtmj.txt"},
    {1, 261, "mlname=%s insert_banner_b recover error %m [%s]"},
    {1, 262, "mlname=%s insert_banner_b fputs error %m [%s]"},
    {1, 263, "mlname=%s insert_banner_b fgets error %m  [%s]"},
};

/* fopen(3) that does not wait for a pipe's other end. */
static FILE *open_stream(const char *path)
{
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && errno == EWOULDBLOCK) fd = open(path, O_RDONLY | O_CLOEXEC); /* a lease: a file */
    FILE *file = fd < 0 ? nullptr : fdopen(fd, "r");
    if (file == nullptr && fd >= 0) (void)close(fd);
    return file;
}

static void close_stream(FILE *file)
{
    KeepErrno keep;
    (void)fclose(file); /* only read */
}

/* Where a text of EUC-JP may be cut: before its last character, or at limit bytes at most. */
static size_t last_cut(const char *text, size_t limit)
{
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(text);
    size_t cut = 0;
    for (size_t next = 0; next <= limit; next += bytes[next] == 0x8E || bytes[next] >= 0xA1 ? 2 : 1)
        cut = next;
    return cut;
}

/* The next line, or piece of a line that is longer than 4,095 bytes; a piece never ends inside a
   character. */
static bool read_piece(char *piece, FILE *file)
{
    if (fgets(piece, LINE_SIZE, file) == nullptr) return false;
    const size_t size = strlen(piece);
    const size_t cut = size == LINE_SIZE - 1 ? last_cut(piece, size) : size;
    if (cut == size) return true;
    (void)ungetc(static_cast<unsigned char>(piece[cut]), file); /* one byte always fits */
    piece[cut] = '\0';
    return true;
}

/* Writes a piece in JIS, in two halves when it grew too long.  What Fputs() answers. */
static int put_piece(char *piece, FileRecord *journal)
{
    char text[LINE_SIZE];
    const size_t middle = last_cut(piece, strlen(piece) / 2);
    if (euc2jis(piece, text, sizeof(text)) == 0 || middle == 0) return Fputs(text, journal);

    const char first_of_second = piece[middle];
    piece[middle] = '\0';
    const int written = put_piece(piece, journal);
    piece[middle] = first_of_second;
    return written < 0 ? written : put_piece(piece + middle, journal);
}

/* Writes what is left of the file, converted, and an empty line.  0; -1 (logged). */
static int write_lines(DeliveryJob *job, const Banner &banner, const char *path, FILE *file)
{
    char piece[LINE_SIZE];
    while (read_piece(piece, file))
        if (put_piece(piece, job->journal) < 0)
            return log_failure(banner.write, job->list_name, path);

    const bool read_failed = ferror(file) != 0;
    const int read_errno = errno;
    if (Fputs("\r\n", job->journal) < 0) return log_failure(banner.write, job->list_name, path);
    if (!read_failed) return 0;
    errno = read_errno;
    return log_failure(banner.read, job->list_name, path);
}

static int insert_banner(DeliveryJob *job, const Banner &banner)
{
    const int kind = job->content_kind;
    if (kind != CONTENT_PLAIN && kind != CONTENT_JIS) return 0;

    char path[PATH_SIZE];
    if (control_path(path, job, banner.file[kind]) < 0 || f_recover(path) < 0)
        return log_failure(banner.recover, job->list_name, path);
    FILE *file = open_stream(path);
    if (file == nullptr) return 0; /* no banner */
    if (ftello(file) < 0) {        /* a pipe: without a writer it would pass for an empty file */
        close_stream(file);
        return log_failure(banner.read, job->list_name, path);
    }
    const int result = write_lines(job, banner, path, file);
    close_stream(file);
    return result;
}

int insert_banner_t(DeliveryJob *job)
{
    return insert_banner(job, top_banner);
}

int insert_banner_b(DeliveryJob *job)
{
    return insert_banner(job, bottom_banner);
}
