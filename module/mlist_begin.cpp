/* The first stages: arguments, directories, lock, settings, number, size, files. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "mlist/mlist.h"
#include "module/ascii.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/join.h"
#include "module/mlist_access.h"
#include "module/mlist_lock.h"
#include "module/mlist_run.h"
#include "module/os.h"
#include "module/outcome.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "store/ntio.h"
#include "store/str.h"

#define JOURNAL_BUFFER_SIZE 65536
#define MESSAGE_BUFFER_SIZE 65536

/* -- directories -- */

static int make_directory(const char *root, const char *domain, const char *list)
{
    char path[PATH_SIZE];
    const char *below = list != nullptr ? "/" : "";
    const char *name = list != nullptr ? list : "";
    if (join_texts(path, sizeof(path) - 1, {root, "/", domain, below, name}) < 0) return 0;
    return os->mkdir(path, 0777);
}

/* The domain's directory, and below it the list's; there already, as nearly always, or the steps
   that need them fail. */
static void make_directories(const char *root, const char *domain, const char *list)
{
    if (list != nullptr && (make_directory(root, domain, list) == 0 || errno != ENOENT)) return;
    (void)make_directory(root, domain, nullptr);
    if (list != nullptr) (void)make_directory(root, domain, list);
}

void make_list_directories(const Run *run, const char *list)
{
    KeepErrno keep;
    const char *domain = run->request->domain;
    if (unusable_component(domain)) return;
    make_directories(g_path_mlist, domain, list);
    make_directories(g_mbox_list, domain, list);
}

/* -- arguments -- */

static Verdict argument_error(Run *run)
{
    make_list_directories(run, nullptr); /* no list of it can be meant, but the domain is one */
    const int count = run->request->argument_count;
    trace_sys(&g_logh, 1, 372, "argument error [ac=%d]", count);
    put_outcome(501, count, run->job.thread_id);
    run->exit_code = MLIST_EXIT_REFUSED;
    return Verdict::leave;
}

/* Slot 1 into the job, as a path component.  Whether it can name a list. */
static bool take_list_name(Run *run, bool with_marker)
{
    const char *name = run->request->argument_vector[1];
    if (name == nullptr) return false;
    const size_t length = strlen(name);
    if (length > LIST_NAME_MAX) {
        if (with_marker)
            trace_sys(&g_logh, 1, 371, "mailing list name too long (ctrl) [ml=%s]", name);
        else
            trace_sys(&g_logh, 1, 370, "mailing list name too long [ml=%s]", name);
        return false;
    }
    address_check(name, run->job.list_name);
    return !unusable_component(run->job.list_name) && !unusable_component(run->job.domain);
}

Verdict check_arguments(Run *run)
{
    const int count = run->request->argument_count;
    if (count != 1 && count != 2) return argument_error(run);
    if (!take_list_name(run, count == 2)) return argument_error(run);
    const char *marker = count == 2 ? run->request->argument_vector[2] : nullptr;
    if (marker != nullptr && same_text_nocase(marker, "/c")) run->job.flags |= JOB_COMMAND_MAIL;

    strtime(run->job.time_text);
    trace(&g_logh, 5, 660, "mailing-list receive [%s]", run->job.list_name);
    make_list_directories(run, run->job.list_name);
    return Verdict::go_on;
}

/* -- lock -- */

Verdict lock_list(Run *run)
{
    DeliveryJob *job = &run->job;
    if (file_lock(job) == 0) return Verdict::go_on;
    if (job->flags & JOB_LOCK_TIMED_OUT) {
        trace_sys(&g_logh, 11, 373, "mlname=%s file lock time out (ex_tempfail)", job->list_name);
        put_outcome(451, job->list_name, job->thread_id);
        run->exit_code = MLIST_EXIT_LATER;
    } else {
        trace_sys(&g_logh, 1, 374, "mlname=%s file lock fail %m", job->list_name);
        put_outcome(502, job->list_name, job->thread_id);
        run->exit_code = MLIST_EXIT_REFUSED;
    }
    return Verdict::leave;
}

/* -- what the list is and allows -- */

static void read_settings(DeliveryJob *job)
{
    job->settings = g_mlit;
    (void)get_mlini(job->list_name, job->domain, &job->settings); /* without it: the defaults */
    job->settings.command_mask |= COMMAND_BIT(COMMAND_PUSH);
    if (job->settings.reply_to[0] == '\0')
        strncpy_(job->settings.reply_to, job->list_name, sizeof(job->settings.reply_to));
}

static void log_settings(const DeliveryJob *job)
{
    const ListSettings *s = &job->settings;
    trace_sys(&g_logh, 11, 378, "ml.ini name=%s 0x%x %x %d %d %d %d %d %s %d %d %d %s",
              job->list_name, s->command_mask, s->nonmember_command_mask, s->subject_mode,
              s->summary_limit, s->nonmembers_may_post, s->reply_to_mode, s->confirmation,
              s->reply_to, s->precedence, s->journal, s->size_limit, s->web_password);
}

/* KEPT: a command mail is tested like a posting; its reply text says so, its commands run.
   Test: CommandMail.AnOversizeCommandMailSaysSoAndIsCarriedOut */
static void test_size(Run *run)
{
    DeliveryJob *job = &run->job;
    const int32_t limit = job->settings.size_limit;
    if (ml_maxmsgsize != 1 || limit == 0) return;
    if (stat_size(run->request->message_file) <= static_cast<int64_t>(limit) * 1024) return;
    trace_sys(&g_logh, 1, 414, "mlname=%s Max message size over (%dKB)", job->list_name, limit);
    put_outcome(538, limit, job->list_name, job->thread_id);
    job->oversize = 1;
    snprintf_(job->oversize_reason, sizeof(job->oversize_reason), "Max message size over (%dKB)",
              limit);
}

Verdict prepare_list(Run *run)
{
    DeliveryJob *job = &run->job;
    char text[128];
    if (check_directory(job) < 0) {
        const char *reason = error_text(errno, text);
        trace_sys(&g_logh, 1, 375, "mlname=%s check_directory fail %m", job->list_name);
        put_outcome(503, job->list_name, reason, job->thread_id);
        return Verdict::fail;
    }
    read_settings(job);
    if (get_newno(job) < 0) {
        const char *reason = error_text(errno, text);
        trace_sys(&g_logh, 1, 377, "mlname=%s get_newno fail", job->list_name);
        put_outcome(505, job->list_name, reason, job->thread_id);
        return Verdict::fail;
    }
    log_settings(job);
    test_size(run);
    return Verdict::go_on;
}

/* -- journal and message -- */

static Verdict open_failed(Run *run, const char *operation, const char *path, int code, int msgno)
{
    char text[128];
    const char *reason = error_text(errno, text);
    trace_sys(&g_logh, 1, msgno, "mlname=%s %s fail %m [%s]", run->job.list_name, operation, path);
    put_outcome(code, run->job.list_name, path, reason, run->job.thread_id);
    return Verdict::fail;
}

/* A new file.  A journal of this name may have become an archived message (a hard link) whose
   delivery ended before the name was given up: emptying it would empty the archive's copy. */
static FileRecord *create_journal(const char *path)
{
    FileRecord *journal = f_create(path);
    if (journal != nullptr || errno != EEXIST || os->unlink(path) < 0) return journal;
    return f_create(path);
}

static bool open_journal(Run *run)
{
    char name[32];
    snprintf_(name, sizeof(name), "jnl/j.%d", run->job.thread_id);
    if (control_path(run->journal_path, &run->job, name) < 0) return false;
    run->job.journal = create_journal(run->journal_path);
    if (run->job.journal == nullptr) return false;
    (void)Fbuffer(run->job.journal, JOURNAL_BUFFER_SIZE); /* without memory it writes directly */
    return true;
}

static bool open_message(Run *run)
{
    run->message = fopen(run->request->message_file, "re");
    if (run->message == nullptr) return false;
    run->read_buffer = static_cast<char *>(host_allocate(MESSAGE_BUFFER_SIZE));
    if (run->read_buffer != nullptr)
        setvbuf(run->message, run->read_buffer, _IOFBF, MESSAGE_BUFFER_SIZE);
    return true;
}

static void start_parsing(DeliveryJob *job)
{
    job->parse_state = STATE_HEADER;
    job->flags |= JOB_FIRST_LINE;
    job->content_kind = CONTENT_PLAIN; /* what a message without Content-Type is */
    job->header_mask =
        ADD_XML_NAME | ADD_XMAIL_COUNT | ADD_PRECEDENCE | ADD_ERRORS_TO | ADD_REPLY_TO | ADD_UNUSED;
    if (add_resent_header != 0) job->header_mask &= ~static_cast<uint32_t>(ADD_XMAIL_COUNT);
    if (job->settings.reply_to_mode == REPLYEDIT_NO)
        job->header_mask &= ~static_cast<uint32_t>(ADD_REPLY_TO);
}

Verdict open_files(Run *run)
{
    if (!open_journal(run)) return open_failed(run, "f_open", run->journal_path, 506, 379);
    start_parsing(&run->job);
    if (!open_message(run)) return open_failed(run, "fopen", run->request->message_file, 508, 381);
    return Verdict::go_on;
}
