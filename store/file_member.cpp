/* The member roster: looking up, adding, removing.  Changing a status, which edits in place, is in
   file_member_status.cpp. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "module/unix_sv.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/roster.h"

const char *const mi2ms[4] = {"QUT", "ON ", "OFF", "DGT"};

int ms2mi(const char *word)
{
    return status_of_word(word, strlen(word));
}

const char *get_status(const char *line)
{
    static const char *const shown[] = {"QUIT", "ON", "OFF", "DGT"};
    const char *blank = strchr(line, ' ');
    if (blank != nullptr) return shown[ms2mi(blank + 1)];
    trace_sys(&g_logh, 1, 140, "get_status null");
    return shown[MEMBER_QUIT];
}

/* -- looking up -- */

static const FailText get_recover(11, 182, "mlname=%s get_member recover error %m [%s]");
static const FailText get_open(11, 183, "mlname=%s get_member f_open error %m [%s]");
static const FailText get_read(11, 184, "mlname=%s get_member fgets error %m [%s]");

/* Finds the address's first line: 1, 0 none, -1. */
static int find_member(FileRecord *roster, const char *address, char *line_out)
{
    const RosterKey key = roster_key(address);
    char joined[VIEW_LINE_SIZE];
    LineView line;
    int got;
    while ((got = Fview(&line, joined, roster)) > 0) {
        if (!is_line_of(line, key)) continue;
        copy_view(line_out, line);
        return 1;
    }
    return got;
}

/* Marks those of the set that have a line: 0, or -1. */
static int find_members(FileRecord *roster, const RosterSet &set, int *known_out)
{
    char joined[VIEW_LINE_SIZE];
    LineView line;
    int got;
    while ((got = Fview(&line, joined, roster)) > 0)
        if (const size_t number = set.find(line); number != RosterSet::NOBODY)
            known_out[number] = 1;
    return got;
}

/* Opens the roster, recovered; null when that failed. */
static FileRecord *open_roster(DeliveryJob *job, char *path)
{
    if (control_path(path, job, "member") < 0 || f_recover(path) < 0) {
        (void)log_failure(get_recover, job->list_name, path);
        return nullptr;
    }
    FileRecord *roster = f_open(path, "r");
    if (roster == nullptr) (void)log_failure(get_open, job->list_name, path);
    return roster;
}

/* What the look-up found, when it found out. */
static int end_look_up(DeliveryJob *job, const char *path, FileRecord *roster, int found)
{
    if (found < 0) (void)log_failure(get_read, job->list_name, path);
    abandon_file(roster);
    return found < 0 ? -1 : 0;
}

int get_member(DeliveryJob *job, const char *address, char *line_out)
{
    char path[PATH_SIZE];
    line_out[0] = '\0';
    FileRecord *roster = open_roster(job, path);
    if (roster == nullptr) return -1;
    return end_look_up(job, path, roster, find_member(roster, address, line_out));
}

int get_members(DeliveryJob *job, const RosterSet &set, int *known_out)
{
    char path[PATH_SIZE];
    for (size_t i = 0; i < set.count; ++i)
        known_out[i] = 0;
    FileRecord *roster = open_roster(job, path);
    if (roster == nullptr) return -1;
    return end_look_up(job, path, roster, find_members(roster, set, known_out));
}

/* -- adding -- */

static const RewriteTexts add_texts = {
    .recover = {1, 158, "mlname=%s add_member recover error %m  [%s]"},
    .open_new = {1, 159, "mlname=%s add_member f_open1 error %m [%s]"},
    .open_source = {1, 160, "mlname=%s add_member f_open2 error %m [%s]"},
    .write = {1, 161, "add_member mlname=%s fputs1 error %m [%s]"},
    .read = {1, 162, "mlname=%s add_member fgets error %m [%s]"},
    .close = {1, 164, "mlname=%s add_member f_close error %m [%s]"},
    .renew = {1, 165, "mlname=%s add_member renew error %m [%s]"},
};
static const FailText add_line(1, 163, "mlname=%s add_member fputs2 error %m [%s]");

static const char *default_word(const DeliveryJob *job)
{
    const int status = job->settings.default_status;
    return mi2ms[status >= MEMBER_QUIT && status <= MEMBER_DIGEST ? status : MEMBER_ON];
}

/* The new member's line behind the others.  A last line without a line end, as an editor leaves
   it, gets one first: the new line stands alone. */
static int put_member(ControlRewrite *rewrite, const char *address)
{
    char text[2 + LINE_SIZE] = "\r\n";
    char *line = text + 2;
    const int length = snprintf(line, LINE_SIZE, "%s %s\r\n", address, default_word(rewrite->job));
    if (length < LINE_SIZE && strchr(address, '\n') == nullptr) {
        const char *whole = rewrite->unended ? text : line;
        rewrite->unended = false;
        return rewrite->put(whole, add_line);
    }
    errno = EINVAL; /* it would be read back as something else */
    return log_failure(add_line, rewrite->job->list_name, rewrite->new_path());
}

static int open_for_adding(ControlRewrite *rewrite)
{
    if (rewrite->recover("member") < 0 || rewrite->open_new() < 0) return -1;
    return rewrite->open_source("member", true);
}

/* Writes what was put behind the others, and puts the new roster in place. */
static int commit_added(ControlRewrite *rewrite)
{
    return rewrite->drain(add_line) < 0 ? -1 : rewrite->commit();
}

int add_member(DeliveryJob *job, const char *address)
{
    ControlRewrite rewrite(job, add_texts);
    if (open_for_adding(&rewrite) < 0) return -1;

    const RosterKey key = roster_key(address);
    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0) {
        if (rewrite.keep(line) < 0) return -1;
        if (!is_line_of(line, key)) continue;
        const int status = status_of_line(line);
        return rewrite.discard() < 0 ? -1 : status;
    }
    if (got < 0 || put_member(&rewrite, address) < 0) return -1;
    return commit_added(&rewrite);
}

int add_members(DeliveryJob *job, const RosterSet &set, const int *wanted)
{
    ControlRewrite rewrite(job, add_texts);
    if (open_for_adding(&rewrite) < 0) return -1;

    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0)
        if (rewrite.keep(line) < 0) return -1;
    if (got < 0) return -1;
    for (size_t i = 0; i < set.count; ++i)
        if (wanted[i] != 0 && put_member(&rewrite, set.addresses[i]) < 0) return -1;
    return commit_added(&rewrite);
}

/* -- removing -- */

static const RewriteTexts del_texts = {
    .recover = {11, 166, "mlname=%s del_member recover error  %m [%s]"},
    .open_new = {11, 168, "mlname=%s del_member f_open2 error %m [%s]"},
    .open_source = {11, 167, "mlname=%s del_member f_open1 error %m [%s]"},
    .write = {11, 169, "mlname=%s del_member fputs error %m [%s]"},
    .read = {11, 170, "mlname=%s del_member fgets error  %m [%s]"},
    .close = {11, 171, "mlname=%s del_member close error  %m [%s]"},
    .renew = {11, 172, "mlname=%s del_member renew error %m [%s]"},
};

static int open_for_removing(ControlRewrite *rewrite)
{
    if (rewrite->recover("member") < 0 || rewrite->open_source("member") < 0) return -1;
    return rewrite->open_new();
}

int del_member(DeliveryJob *job, const char *address)
{
    ControlRewrite rewrite(job, del_texts);
    if (open_for_removing(&rewrite) < 0) return -1;

    const RosterKey key = roster_key(address);
    int removed = 0;
    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0) {
        if (is_line_of(line, key))
            removed = status_of_line(line);
        else if (rewrite.keep(line) < 0)
            return -1;
    }
    if (got < 0 || rewrite.commit() < 0) return -1;
    return removed;
}

int del_members(DeliveryJob *job, const RosterSet &set)
{
    ControlRewrite rewrite(job, del_texts);
    if (open_for_removing(&rewrite) < 0) return -1;

    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0)
        if (set.find(line) == RosterSet::NOBODY && rewrite.keep(line) < 0) return -1;
    return got < 0 ? -1 : rewrite.commit();
}
