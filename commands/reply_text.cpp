/* Welcome and help: the list's own text, the host's, or the built-in one. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>

#include "codec/conv.h"
#include "commands/reply_file.h"
#include "commands/reply_text.h"
#include "ldapuse.h"
#include "module/guards.h"
#include "module/host_functions.h"
#include "module/host_mem.h"
#include "module/unix_sv.h"
#include "store/str.h"

const char *fixed_control_root = "/home/mail/#mlcontrol";

static const char str_help[] = "\nML Command\n\n# help\n# subscribe\n# unsubscribe\n# member\n"
                               "# off\n# on\n# digest\n# stat\n# summary\n# get ID\n";

/* Twice what the host may fill, and zeroed, whatever its library thinks of sizes. */
#define HOST_TEXT_SIZE (2 * KYT_TEXT_SIZE)

char *file2memory(const char *path)
{
    FdGuard guard(open_file(path, O_RDONLY, 0));
    if (guard.fd < 0 || lock_file(guard.fd, LOCK_SH) < 0) return nullptr;
    struct stat status;
    char *text = nullptr;
    if (os->fstat(guard.fd, &status) == 0)
        text = read_to_memory(guard.fd, 0, static_cast<size_t>(status.st_size));
    KeepErrno keep;
    (void)lock_file(guard.fd, LOCK_UN); /* closing releases it in any case */
    return text;
}

/* KEPT: the list's own texts lie below the fixed root, wherever the host moved its lists.
   Test: ReplyText.TheListsOwnTextsLieBelowTheFixedRoot */
static char *read_own_text(const DeliveryJob *job, const char *name)
{
    char path[PATH_SIZE];
    const int length = snprintf_(path, sizeof(path), "%s/%s/%s/msg/%s", fixed_control_root,
                                 job->domain, job->list_name, name);
    return length <= static_cast<int>(sizeof(path)) - 2 ? file2memory(path) : nullptr;
}

static int put_with_line_end(ReplyFile *reply, const char *text, const WriteTexts &texts)
{
    if (reply_put(reply, text, texts) < 0 || reply_put(reply, "\r\n", texts) < 0) return -1;
    return reply_end_step(reply, texts);
}

/* A host's text, in the code of mail.  What does not fit is cut. */
static int put_host_text(ReplyFile *reply, const char *text, const WriteTexts &texts)
{
    char converted[LINE_SIZE];
    (void)euc2jis(text, converted, sizeof(converted)); /* cut: terminated where it stopped */
    return put_with_line_end(reply, converted, texts);
}

/* -- welcome -- */

int put_welcome(ReplyFile *reply)
{
    static const WriteTexts from_host = {"fputs2",
                                         {1, 211, "mlname=%s create_cmdrpy fputs2 error %m [%s]"}};
    static const WriteTexts from_file = {"fputs3",
                                         {1, 213, "mlname=%s create_cmdrpy fputs3 error %m [%s]"}};
    DeliveryJob *job = reply->job;
    const HostPtr<char> own(read_own_text(job, "welcome"));
    if (own.p != nullptr) return put_with_line_end(reply, own.p, from_file);

    char text[HOST_TEXT_SIZE] = "";
    const int found = kyt_ml_welcomemsg_search(job->domain, job->list_name, text);
    if (found != KYT_FOUND && found != KYT_NOT_FOUND) {
        trace_sys(&g_logh, 1, 210, "kyt_ml_welcomemsg_search  error %d [%s]", found, reply->path);
        return -1;
    }
    if (found == KYT_NOT_FOUND) text[0] = '\0';
    text[HOST_TEXT_SIZE - 1] = '\0';
    return put_host_text(reply, text, from_host);
}

/* -- help -- */

/* More pieces than any help text has; a host that never ends must not hold the list. */
#define HELP_PIECES_MAX 10000

/* The host's help.  1 something was written, 0 there is none, -1 failure. */
static int put_host_help(ReplyFile *reply)
{
    static const WriteTexts texts = {"fputs2",
                                     {1, 215, "mlname=%s create_cmdrpy fputs2 error %m [%s]"}};
    DeliveryJob *job = reply->job;
    int32_t cursor = 0, more = 1;
    int written = 0;
    for (int piece = 0; more != 0 && piece < HELP_PIECES_MAX; ++piece) {
        char text[HOST_TEXT_SIZE] = "";
        more = 0;
        const int found = kyt_ml_helpmsg_search(job->domain, job->list_name, &cursor, text, &more);
        if (found == KYT_NOT_FOUND) break;
        if (found != KYT_FOUND) {
            trace_sys(&g_logh, 1, 212, "kyt_ml_helpmsg_search  rval=%x  mlname=%s domain=%s",
                      static_cast<unsigned>(found), job->list_name, job->domain);
            return -1;
        }
        text[HOST_TEXT_SIZE - 1] = '\0';
        if (put_host_text(reply, text, texts) < 0) return -1;
        written = 1;
    }
    return written;
}

/* 1 something was written, 0 there is no text, -1 failure. */
static int put_list_help(ReplyFile *reply)
{
    static const WriteTexts texts = {"fputs3",
                                     {1, 214, "mlname=%s create_cmdrpy fputs3 error %m [%s]"}};
    const HostPtr<char> own(read_own_text(reply->job, "help"));
    if (own.p == nullptr) return put_host_help(reply);
    return put_with_line_end(reply, own.p, texts) < 0 ? -1 : 1;
}

int put_help(ReplyFile *reply)
{
    static const WriteTexts texts = {"fputs4",
                                     {1, 218, "mlname=%s create_cmdrpy fputs4 error %m [%s]"}};
    int written = put_list_help(reply);
    /* KEPT: asked twice.  Test: ReplyText.HelpIsLookedForTwiceBeforeTheBuiltInTextServes */
    if (written == 0) written = put_list_help(reply);
    if (written != 0) return written < 0 ? -1 : 0;
    return reply_put(reply, str_help, texts) < 0 ? -1 : reply_end_step(reply, texts);
}
