/* What follows from the roster: "active" and "digest", the plain address lists that the host
   delivers to, and the operations of the membership commands, which keep them in step. */
#include <errno.h>
#include <string.h>

#include "module/ascii.h"
#include "module/sink.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/roster.h"

/* -- deriving -- */

static const RewriteTexts reflect_texts = {
    .recover = {1, 193, "mlname=%s reflect_include recover error %m [%s]"},
    .open_new = {1, 195, "mlname=%s reflect_include f_open2 error %m [%s]"},
    .open_source = {1, 196, "mlname=%s reflect_include f_open3 error %m [%s]"},
    .write = {1, 197, "mlname=%s reflect_include fputs error %m [%s]"},
    .read = {1, 198, "mlname=%s reflect_include fgets error %m [%s]"},
    .close = {1, 199, "mlname=%s reflect_include close error %m [%s]"},
    .renew = {1, 200, "mlname=%s reflect_include renew error %m [%s]"},
};
static const FailText reflect_type(1, 192, "mlname=%s reflect_include not support type [%s]");
static const FailText reflect_target(1, 194, "mlname=%s reflect_include f_open1 error %m [%s]");

struct DerivedFile {
    const char *name;
    int status; /* of the members in it */
};

static const DerivedFile derived_files[] = {{"active", MEMBER_ON}, {"digest", MEMBER_DIGEST}};

static const DerivedFile *find_derived(const char *type)
{
    for (const DerivedFile &file : derived_files)
        if (same_text_nocase(file.name, type)) return &file;
    return nullptr;
}

static int open_files(ControlRewrite *rewrite)
{
    if (rewrite->demand(reflect_target) < 0) return -1;
    if (rewrite->open_new() < 0) {
        out_printf("Can't Open Include File [%s]\n", rewrite->new_path());
        return -1;
    }
    if (rewrite->open_source("member") < 0) {
        err_printf("f_open error [%s]\n", rewrite->source_path);
        return -1;
    }
    return 0;
}

static int put_address(ControlRewrite *rewrite, const MemberLine &member)
{
    const LineView address = {member.address, member.address_size, 0, true, false};
    return rewrite->keep(address);
}

int reflect_include(DeliveryJob *job, const char *type)
{
    const DerivedFile *derived = find_derived(type);
    if (derived == nullptr) return log_failure(reflect_type, job->list_name, type);

    ControlRewrite rewrite(job, reflect_texts);
    if (rewrite.recover(derived->name) < 0 || open_files(&rewrite) < 0) return -1;
    LineView line;
    int got;
    while ((got = rewrite.next(&line)) > 0) {
        const MemberLine member = split_member(line);
        if (member.address == nullptr) continue;
        if (status_of_word(member.word, member.word_size) != derived->status) continue;
        if (put_address(&rewrite, member) < 0) return -1;
    }
    return got < 0 ? -1 : rewrite.commit();
}

/* -- membership -- */

enum Derive { NOTHING = 0, ACTIVE = 1, DIGEST = 2, BOTH = ACTIVE | DIGEST };

static int derive(DeliveryJob *job, int which)
{
    if ((which & ACTIVE) != 0 && reflect_include(job, "active") < 0) return -1;
    if ((which & DIGEST) != 0 && reflect_include(job, "digest") < 0) return -1;
    return 0;
}

int add_mlmbr(DeliveryJob *job, const char *address)
{
    const int result = add_member(job, address);
    if (result != 0) return result < 0 ? -1 : 0;
    return derive(job, BOTH);
}

/* KEPT: a removal that fails looks like success to the commands.
   Test: DelMlmbr.AnswersZeroEvenWhenItFails */
int del_mlmbr(DeliveryJob *job, const char *address)
{
    static const Derive after_status[] = {NOTHING, ACTIVE, NOTHING, DIGEST};
    const int removed = del_member(job, address);
    if (removed > 0) (void)derive(job, after_status[removed]); /* logged where it failed */
    return 0;
}

static const FailText chg_failed(1, 257, "mlname=%s chg_member failed %s");
static const Derive after_change[4][4] = {
    /* new:   -        1        2        3     */
    {NOTHING, NOTHING, NOTHING, NOTHING}, /* was no member */
    {NOTHING, NOTHING, ACTIVE, BOTH},     /* was 1 */
    {NOTHING, ACTIVE, NOTHING, DIGEST},   /* was 2 */
    {NOTHING, BOTH, DIGEST, NOTHING},     /* was 3 */
};

int chg_mlmbr(DeliveryJob *job, const char *address, int status)
{
    if (status < MEMBER_ON || status > MEMBER_DIGEST) return -1;
    const int former = chg_member(job, address, mi2ms[status]);
    if (former < 0) return log_failure(chg_failed, job->list_name, address);
    if (former == MEMBER_QUIT) return 0;
    return derive(job, after_change[former][status]) < 0 ? -1 : 1;
}

/* -- membership of many -- */

int add_mlmbrs(DeliveryJob *job, const RosterSet &set, const int *wanted)
{
    return add_members(job, set, wanted) < 0 ? -1 : derive(job, BOTH);
}

int del_mlmbrs(DeliveryJob *job, const RosterSet &set)
{
    return del_members(job, set) < 0 ? -1 : derive(job, BOTH);
}

int chg_mlmbrs(DeliveryJob *job, const RosterSet &set, int status, int *former_out)
{
    if (chg_members(job, set, mi2ms[status], former_out) < 0)
        return log_failure(chg_failed, job->list_name, set.addresses[0]);
    int which = NOTHING;
    for (size_t i = 0; i < set.count; ++i)
        which |= after_change[former_out[i]][status];
    return derive(job, which);
}

/* -- is there anyone to send to -- */

struct PresenceTexts {
    const char *name;
    FailText recover, missing, empty, available;
};

static const PresenceTexts active_presence = {
    "active",
    {1, 243, "mlname=%s notexist_active recover error %m [%s]"},
    {1, 244, "mlname=%s notexist_active active file not exist"},
    {1, 245, "mlname=%s notexist_active active file empty"},
    {11, 246, "mlname=%s notexist_active active file availabe"},
};
static const PresenceTexts digest_presence = {
    "digest",
    {1, 247, "mlname=%s notexist_digest recover error %m [%s]"},
    {1, 248, "mlname=%s notexist_digest digest file not exist"},
    {1, 249, "mlname=%s notexist_digest digest file empty"},
    {11, 250, "mlname=%s notexist_digest digest file availabe"},
};

/* A file that cannot be looked at may well have somebody in it: whoever reads it will find out, and
   fail, where "missing" would be the end of it. */
static const FailText *presence_of(const char *path, const PresenceTexts &texts)
{
    const int64_t size = stat_size(path);
    if (size < 0) return errno == ENOENT ? &texts.missing : &texts.available;
    return size == 0 ? &texts.empty : &texts.available;
}

/* Whether a side file is there that recovery could do nothing about. */
static bool is_unrepairable(const char *path)
{
    SideFiles files;
    return name_side_files(path, &files) < 0 || extfile(files.new_path);
}

static int is_absent(DeliveryJob *job, const PresenceTexts &texts)
{
    char path[PATH_SIZE];
    const FailText *found = &texts.recover;
    if (control_path(path, job, texts.name) == 0 &&
        (f_recover(path) == 0 || !is_unrepairable(path)))
        found = presence_of(path, texts);
    (void)log_failure(*found, job->list_name, path);
    return found == &texts.available ? 0 : 1;
}

int notexist_active(DeliveryJob *job)
{
    return is_absent(job, active_presence);
}

int notexist_digest(DeliveryJob *job)
{
    return is_absent(job, digest_presence);
}

int del_active(DeliveryJob *job, int which)
{
    char path[PATH_SIZE];
    if (control_path(path, job, which != 0 ? "active" : "digest") < 0) return -1;
    return delfile(path);
}
