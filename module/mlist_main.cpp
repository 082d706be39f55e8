/* ModuleMain(): the way of one message, and its two regular exits. */
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mlist/mlist.h"
#include "module/host_mem.h"
#include "module/mlist_access.h"
#include "module/mlist_lock.h"
#include "module/mlist_run.h"
#include "module/os.h"
#include "module/outcome.h"
#include "module/sink.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "store/ntio.h"
#include "store/str.h"

/* A stage runs only while the ones before it went on. */
static Verdict deliver(Run *run)
{
    static Verdict (*const stages[])(Run *) = {
        check_arguments, lock_list, prepare_list, open_files, copy_message, close_files, decide,
    };
    for (const auto stage : stages) {
        const Verdict verdict = stage(run);
        if (verdict != Verdict::go_on) return verdict;
    }
    return Verdict::succeed;
}

/* The domain as a path component.  Whether there was memory for it. */
static bool clean_domain(Run *run)
{
    const char *domain = run->request->domain;
    HostPtr<char> cleaned(2 * strlen(domain) + 1);
    if (cleaned.p == nullptr) return false;
    address_check(domain, cleaned.p);
    strncpy_(run->job.domain, cleaned.p, sizeof(run->job.domain));
    return true;
}

static bool begin(Run *run, DeliveryRequest *request)
{
    memset(run, 0, sizeof(*run));
    run->request = request;
    run->member_known = -1;
    run->job.lock_fd = -1;
    run->job.header_index = -1;
    run->job.thread_id = thread_number();
    const char *kept = request->keep_text("EOF");
    thread_context()->host_text = kept != nullptr ? kept : "EOF";
    run->job.submit = request->submit;
    run->job.output = mlist_get_output();
    request->reply_text[0] = '\0';
    return clean_domain(run);
}

static void close_message(Run *run)
{
    if (run->message != nullptr) fclose(run->message);
    run->message = nullptr;
    host_release(run->read_buffer);
    run->read_buffer = nullptr;
}

/* What every exit gives back, in this order: files, lock, Thread context. */
static void release_all(Run *run)
{
    close_message(run);
    if (run->job.journal != nullptr) (void)f_close(run->job.journal); /* its content is void */
    run->job.journal = nullptr;
    if (run->job.index.fd > 0) (void)os->close(run->job.index.fd); /* not locked, only read */
    file_unlock(&run->job);
    out_flush();
}

static int success_exit(Run *run)
{
    release_all(run);
    const char *text = thread_context()->host_text;
    if (strncmp(text, "EOF", 3) != 0) {
        char *result = run->request->result_text;
        const size_t length = strnlen(text, MLIST_RESULT_TEXT_SIZE - 1);
        memcpy(result, text, length);
        result[length] = '\0';
    }
    trace(&g_logh, 11, 661, "mailing-list end[%s]", run->job.list_name);
    tcbfree();
    return MLIST_EXIT_ACCEPTED;
}

static int failure_exit(Run *run)
{
    /* What still waits came before the step that failed: if it cannot be written, that failure is
       the first one. */
    if (run->job.journal != nullptr) (void)drain_journal(run);
    release_all(run);
    tcbfree();
    trace(&g_logh, 1, 1, "%03d: mailing-list unavailable  [%s] <<<", run->job.thread_id,
          run->job.list_name);
    return get_rcode();
}

static int leave_at_once(Run *run, int code)
{
    release_all(run);
    tcbfree();
    return code;
}

static int run_delivery(DeliveryRequest *request)
{
    tcbcreate(request);
    Run run;
    if (!begin(&run, request)) return leave_at_once(&run, MLIST_EXIT_LATER);
    switch (deliver(&run)) {
    case Verdict::fail:
        return failure_exit(&run);
    case Verdict::leave:
        return leave_at_once(&run, run.exit_code);
    case Verdict::go_on:
    case Verdict::succeed:
        break;
    }
    return success_exit(&run);
}

int ModuleMain(DeliveryRequest *request)
{
    umask(017);
    ThreadContext *hosts = set_context_aside();
    const int code = run_delivery(request);
    take_context_back(hosts);
    return code;
}
