/* Who may post ("grant", addresses) and who may subscribe ("subscribe", domains). */
#include <string.h>

#include "module/ascii.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/rewrite.h"

/* Text of an access line: without the blanks around it. */
struct AccessLine {
    const char *text;
    size_t size;
};

static bool is_end_char(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/* Takes the blanks and line ends off the end of the view itself. */
static void trim_end(LineView *view)
{
    while (view->size > 0 && is_end_char(view->text[view->size - 1]))
        --view->size;
    view->ended = false;
}

static AccessLine without_leading_blanks(const LineView &view)
{
    AccessLine line = {view.text, view.size};
    while (line.size > 0 && is_blank(static_cast<unsigned char>(*line.text))) {
        ++line.text;
        --line.size;
    }
    return line;
}

/* Whether a line allows the subject, an address or a domain. */
typedef bool (*AllowTest)(const AccessLine &line, const AccessLine &subject);

/* Leaves the first line that allows the subject in line_out, its trailing blanks removed, or "".
   0, or -1 on a read error. */
static int find_line(FileRecord *file, AllowTest allows, const AccessLine &subject, char *line_out)
{
    char joined[VIEW_LINE_SIZE];
    LineView view;
    int got;
    line_out[0] = '\0';
    while ((got = Fview(&view, joined, file)) > 0) {
        trim_end(&view);
        if (!allows(without_leading_blanks(view), subject)) continue;
        copy_view(line_out, view);
        return 0;
    }
    return got;
}

/* -- posting -- */

static const FailText grant_recover(1, 185, "mlname=%s get_grant recover %m");
static const FailText grant_stat(1, 186, "mlname=%s get_grant file not stat %m");
static const FailText grant_open(1, 187, "mlname=%s get_grant f_open error [%s]\n");

static bool grants(const AccessLine &line, const AccessLine &address)
{
    return line.size == address.size && same_bytes_nocase(line.text, address.text, line.size);
}

int get_grant(DeliveryJob *job, const char *address, char *line_out)
{
    char path[PATH_SIZE];
    line_out[0] = '\0';
    if (control_path(path, job, "grant") < 0 || f_recover(path) < 0)
        return log_failure(grant_recover, job->list_name);
    const int64_t size = stat_size(path);
    if (size < 0) return log_failure(grant_stat, job->list_name);
    if (size == 0) return get_member(job, address, line_out); /* whatever the member's status */

    FileRecord *file = f_open(path, "r");
    if (file == nullptr) return log_failure(grant_open, job->list_name, path);
    const int result = find_line(file, grants, {address, strlen(address)}, line_out);
    if (result < 0)
        (void)trace(&g_logh, 1, 1, "mlname=%s get_grant fgets error [%s]", job->list_name, path);
    abandon_file(file);
    return result;
}

int notexist_grant(DeliveryJob *job)
{
    (void)trace_sys(&g_logh, 11, 253, "mlname=%s notexist_grant grant file availabe",
                    job->list_name);
    return 0;
}

/* -- subscribing -- */

static const FailText subscribe_stat(1, 188, "mlname=%s get_subscribe file not stat %m");
static const FailText subscribe_recover(1, 189, "mlname=%s get_subscribe recover error %m [%s]");
static const FailText subscribe_open(1, 190, "mlname=%s get_subscribe f_open error %m [%s]");
static const FailText subscribe_read(1, 191, "mlname=%s get_subscribe fgets error %m [%s]");

/* KEPT: a plain line is compared without regard to case, the end that a pattern names with it.
   Test: GetSubscribe.PatternsDependOnCaseAndPlainLinesDoNot */
static bool admits(const AccessLine &line, const AccessLine &domain)
{
    if (line.size == 0) return false;
    if (line.text[0] != '*') return grants(line, domain);
    const size_t size = line.size - 1;
    return size > 0 && size <= domain.size &&
           memcmp(line.text + 1, domain.text + (domain.size - size), size) == 0;
}

static int search_subscribe(DeliveryJob *job, const char *path, const char *domain, char *line_out)
{
    if (f_recover(path) < 0) return log_failure(subscribe_recover, job->list_name, path);
    FileRecord *file = f_open(path, "r");
    if (file == nullptr) return log_failure(subscribe_open, job->list_name, path);
    const int result = find_line(file, admits, {domain, strlen(domain)}, line_out);
    if (result < 0) (void)log_failure(subscribe_read, job->list_name, path);
    abandon_file(file);
    return result;
}

int get_subscribe(DeliveryJob *job, const char *address, char *line_out)
{
    const char *at = strchr(address, '@');
    if (at == nullptr || at[1] == '\0') {
        line_out[0] = '\0';
        return 0;
    }
    char path[PATH_SIZE];
    const int64_t size = control_path(path, job, "subscribe") < 0 ? -1 : stat_size(path);
    if (size < 0) {
        line_out[0] = '\0';
        return log_failure(subscribe_stat, job->list_name);
    }
    if (size > 0) return search_subscribe(job, path, at + 1, line_out);
    strcpy(line_out, "\n"); /* anyone may */
    return 0;
}

static const FailText presence_recover(1, 254,
                                       "mlname=%s notexist_subscribe recover error %m [%s]");
static const FailText presence_missing(1, 255,
                                       "mlname=%s notexist_subscribe subscribe file not exist");

int notexist_subscribe(DeliveryJob *job)
{
    char path[PATH_SIZE];
    if (control_path(path, job, "subscribe") < 0 || f_recover(path) < 0) {
        (void)log_failure(presence_recover, job->list_name, path);
        return 1;
    }
    if (extfile(path) == 0) {
        (void)log_failure(presence_missing, job->list_name);
        return 1;
    }
    (void)trace_sys(&g_logh, 11, 256, "mlname=%s notexist_subscribe subscribe file availabe",
                    job->list_name);
    return 0;
}
