/* Banners: the list's texts above and below the body of a posting. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

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

static void close_stream(FILE *file)
{
    KeepErrno keep;
    (void)fclose(file); /* only read */
}

/* Whether the EUC-JP text ends with the first byte of a two-byte character. */
static bool ends_inside_character(const char *text)
{
    const unsigned char *p = reinterpret_cast<const unsigned char *>(text);
    for (; *p != '\0'; ++p) {
        const bool leads = *p == 0x8E || *p >= 0xA1;
        if (leads && *++p == '\0') return true;
    }
    return false;
}

/* The next line, or piece of a line that is longer than 4,095 bytes; a piece never ends inside a
   character. */
static bool read_piece(char *piece, FILE *file)
{
    if (fgets(piece, LINE_SIZE, file) == nullptr) return false;
    const size_t size = strlen(piece);
    if (size == LINE_SIZE - 1 && ends_inside_character(piece)) {
        (void)ungetc(static_cast<unsigned char>(piece[size - 1]), file); /* one always fits */
        piece[size - 1] = '\0';
    }
    return true;
}

/* Writes what is left of the file, converted, and an empty line.  0; -1 (logged). */
static int write_lines(DeliveryJob *job, const Banner &banner, const char *path, FILE *file)
{
    char piece[LINE_SIZE];
    char text[LINE_SIZE];
    while (read_piece(piece, file)) {
        /* What does not fit after conversion is cut. */
        (void)euc2jis(piece, text, sizeof(text));
        if (Fputs(text, job->journal) < 0) return log_failure(banner.write, job->list_name, path);
    }
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
    FILE *file = fopen(path, "re");
    if (file == nullptr) return 0; /* no banner */
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
