/* The numbers of the postings that have not gone out in a digest yet: one line of single numbers
   and ranges ("5-7,9"), without a line end, in the list's "dgtstat". */
#include <stdio.h>
#include <string.h>

#include "module/unix_sv.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/rewrite.h"
#include "store/side_files.h"
#include "store/str.h"

/* -- the line -- */

/* Writes the joint and the number at `at`, a place in the line.  0, or -1 when they do not fit. */
static int put_number(char *line, int size, char *at, const char *joint, uint32_t number)
{
    /* Message numbers stay below 2^31, so that the sign is never a second "-". */
    char text[16];
    const int length = snprintf(text, sizeof(text), "%s%d", joint, static_cast<int>(number));
    if (at - line + length + 1 > size) return -1;
    memcpy(at, text, static_cast<size_t>(length) + 1);
    return 0;
}

int anlyzline_dst(char *line, int size, uint32_t number)
{
    char *comma = strrchr(line, ',');
    char *dash = strrchr(line, '-');
    char *end = line + strlen(line);
    const bool range = dash != nullptr && (comma == nullptr || dash > comma);

    if (comma == nullptr && dash == nullptr && atodw(line) == 0)
        return put_number(line, size, line, "", number);

    const char *last = range ? dash + 1 : comma != nullptr ? comma + 1 : line;
    /* Only the successor joins: repeated and lower numbers are kept as they come. */
    if (number - atodw(last) != 1) return put_number(line, size, end, ",", number);
    return put_number(line, size, range ? dash : end, "-", number);
}

/* -- the file -- */

/* How the only line of the file was found. */
enum class ReadLine { done, second_line, failed };

/* Reads the first line; nothing when the file is empty. */
static ReadLine read_only_line(FileRecord *file, char *buffer, int size)
{
    char second[8];
    if (Fgets(buffer, size, file) != nullptr && Fgets(second, sizeof(second), file) != nullptr)
        return ReadLine::second_line;
    return Ferror(file) != 0 ? ReadLine::failed : ReadLine::done;
}

int get_dstfile(DeliveryJob *job, const char *path, char *buffer, int size)
{
    const char *list = job->list_name;
    if (f_recover(path) < 0) {
        trace_sys(&g_logh, 1, 142, "mlname=%s get_dstfile recover error %m [%s]", list, path);
        return -1;
    }
    if (stat_size(path) == 0) return 0;
    FileRecord *file = f_open(path, "r");
    if (file == nullptr) {
        trace_sys(&g_logh, 1, 143, "mlname=%s get_dstfile f_open error %m [%s]", list, path);
        return -1;
    }
    const ReadLine result = read_only_line(file, buffer, size);
    abandon_file(file);
    switch (result) {
    case ReadLine::done:
        return 0;
    case ReadLine::second_line:
        trace_sys(&g_logh, 1, 144, "mlname=%s get_dstfile dgtstat format error %m [%s]", list,
                  path);
        return -1;
    case ReadLine::failed:
        trace_sys(&g_logh, 1, 145, "mlname=%s get_dstfile fgets error %m [%s]", list, path);
        return -1;
    }
    return -1;
}

/* The file as it was and as it is to be. */
struct Status {
    char line[LINE_SIZE];         /* its line as it was read, then with the new number */
    char bytes[FILE_BUFFER_SIZE]; /* what it held, when that is known */
    size_t size;
    bool known;
};

static void keep_contents(Status *status, const FileRecord *file)
{
    const char *bytes = Fcontents(file, &status->size);
    status->known = bytes != nullptr;
    if (status->known) memcpy(status->bytes, bytes, status->size);
}

/* 0, or -1 (logged). */
static int read_status(const char *list, const char *path, Status *status)
{
    status->line[0] = '\0';
    if (f_recover(path) < 0) {
        trace_sys(&g_logh, 1, 146, "mlname=%s set_dstfile recover error %m [%s]", list, path);
        return -1;
    }
    FileRecord *file = f_open(path, "r");
    if (file == nullptr) {
        trace_sys(&g_logh, 1, 147, "mlname=%s set_dstfile f_open1 error %m [%s]", list, path);
        return -1;
    }
    const ReadLine result = read_only_line(file, status->line, LINE_SIZE);
    keep_contents(status, file);
    abandon_file(file);
    switch (result) {
    case ReadLine::done:
        return 0;
    case ReadLine::second_line:
        trace_sys(&g_logh, 1, 148, "mlname=%s set_dstfile dgtstat format1 error %m [%s]", list,
                  path);
        return -1;
    case ReadLine::failed:
        trace_sys(&g_logh, 1, 149, "mlname=%s set_dstfile fgets error %m [%s]", list, path);
        return -1;
    }
    return -1;
}

/* Puts the line in place of the file's contents.  0, or -1 (logged). */
static int replace_status(const char *list, const char *path, const Status *status)
{
    SideFiles files;
    FileRecord *file = name_side_files(path, &files) < 0 ? nullptr : open_draft(&files);
    if (file == nullptr) {
        trace_sys(&g_logh, 1, 151, "mlname=%s set_dstfile f_open2 error %m [%s]", list, path);
        return -1;
    }
    if (Fputs(status->line, file) < 0) {
        trace_sys(&g_logh, 1, 152, "mlname=%s set_dstfile fputs error %m [%s]", list, path);
        abandon_file(file);
        drop_draft(&files);
        return -1;
    }
    /* KEPT: a failed close of the new file goes unnoticed, here and below (153 and 156 are never
       logged); f_renew() syncs its own copy.  Test: SetDstfile.AFailedCloseGoesUnnoticed */
    (void)f_close(file);
    const Contents contents = {status->known ? status->bytes : nullptr, status->size, status->line,
                               strlen(status->line)};
    if (renew_from_draft(path, &contents) < 0) {
        trace_sys(&g_logh, 1, 154, "mlname=%s set_dstfile renew error %m [%s]", list, path);
        return -1;
    }
    return 0;
}

int set_dstfile(DeliveryJob *job, const char *path, uint32_t number)
{
    Status status;
    if (read_status(job->list_name, path, &status) < 0) return -1;
    if (anlyzline_dst(status.line, sizeof(status.line), number) < 0) {
        /* KEPT: the one text without the list's name.  Test: SetDstfile.AFullLineIsRefused */
        trace_sys(&g_logh, 1, 150, "set_dstfile dgtstat format2 error %m [%s]", path);
        return -1;
    }
    return replace_status(job->list_name, path, &status);
}

int reset_dstfile(DeliveryJob *job, const char *path)
{
    const char *list = job->list_name;
    SideFiles files;
    FileRecord *file = name_side_files(path, &files) < 0 ? nullptr : open_new_file(&files);
    if (file == nullptr) {
        trace_sys(&g_logh, 1, 155, "mlname=%s reset_dstfile f_open error %m [%s]", list, path);
        return -1;
    }
    (void)f_close(file); /* see replace_status() */
    if (f_renew(path) < 0) {
        trace_sys(&g_logh, 1, 157, "mlname=%s reset_dstfile renew %m [%s]", list, path);
        return -1;
    }
    return 0;
}
