#include "tests/reference/posting_literal.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "codec/conv.h"
#include "commands/reply.h"
#include "headers/head.h"
#include "module/outcome.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "store/file.h"
#include "tests/reference/posting_archive.h"
#include "tests/reference/posting_files.h"

namespace fs = std::filesystem;

namespace literal
{
/* One delivery.  Steps answer whether to go on; those that end it leave the exit in `ended`. */
class Delivery
{
  public:
    explicit Delivery(DeliveryRequest *request) : request_(request) {}
    int run();

  private:
    enum Ended { nothing, success, failure, at_once };

    bool fail(const std::string &text, int code, int number, int level = 1);
    bool fail_with_path(const std::string &text, int code, int number, const std::string &path);
    bool begin();
    bool take_arguments();
    bool lock();
    bool prepare();
    bool copy_message();
    bool copy_line(const std::string &piece);
    bool header_line(std::string line);
    bool end_header(const std::string &blank);
    bool is_loop();
    bool loop_found();
    void write(const std::string &text);
    void banner(const char *plain, const char *japanese);
    bool decide();
    bool deny(const char *reason);
    bool distribute();
    bool name_and_submit();
    bool submit(const std::string &file, const char *const *to, const char *recipient_file);
    void unlock();
    int finish();

    DeliveryRequest *request_;
    DeliveryJob job_ = {};
    Ended ended_ = nothing;
    int exit_code_ = 0, journal_ = -1;
    std::string journal_path_, owner_;
};

/* -- failures -- */

bool Delivery::fail(const std::string &text, int code, int number, int level)
{
    trace_sys(&g_logh, level, number, "mlname=%s %s", job_.list_name, text.c_str());
    put_outcome(code, job_.list_name, job_.thread_id);
    ended_ = failure;
    return false;
}

bool Delivery::fail_with_path(const std::string &text, int code, int number,
                              const std::string &path)
{
    const int error = errno;
    trace_sys(&g_logh, 1, number, "mlname=%s %s fail %m [%s]", job_.list_name, text.c_str(),
              path.c_str());
    put_outcome(code, job_.list_name, path.c_str(), strerror(error), job_.thread_id);
    ended_ = failure;
    return false;
}

/* -- before the message -- */

static std::string as_component(const char *name)
{
    std::string text = name;
    for (char &c : text) {
        if (c == '/' || static_cast<unsigned char>(c) < ' ' || c == 0x7F) c = ':';
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 'a' - 'A');
    }
    return text;
}

bool Delivery::begin()
{
    umask(017);
    tcbcreate(request_);
    job_.lock_fd = job_.header_index = -1;
    job_.thread_id = gettid();
    job_.output = mlist_get_output();
    thread_context()->host_text = request_->keep_text("EOF");
    request_->reply_text[0] = '\0';
    snprintf(job_.domain, sizeof(job_.domain), "%s", as_component(request_->domain).c_str());
    for (const char *root : {g_path_mlist, g_mbox_list})
        mkdir((std::string(root) + "/" + request_->domain).c_str(), 0777);
    return true;
}

bool Delivery::take_arguments()
{
    const char *name = request_->argument_vector[1];
    if (request_->argument_count != 1 || strlen(name) > 32) {
        if (request_->argument_count == 1)
            trace_sys(&g_logh, 1, 370, "mailing list name too long [ml=%s]", name);
        trace_sys(&g_logh, 1, 372, "argument error [ac=%d]", request_->argument_count);
        put_outcome(501, request_->argument_count, job_.thread_id);
        exit_code_ = MLIST_EXIT_REFUSED;
        ended_ = at_once;
        return false;
    }
    snprintf(job_.list_name, sizeof(job_.list_name), "%s", as_component(name).c_str());
    owner_ = std::string("owner-") + job_.list_name + "@" + job_.domain;
    trace(&g_logh, 5, 660, "mailing-list receive [%s]", job_.list_name);
    for (const char *root : {g_path_mlist, g_mbox_list})
        mkdir((std::string(root) + "/" + request_->domain + "/" + job_.list_name).c_str(), 0777);
    return true;
}

bool Delivery::lock()
{
    const std::string path = path_of(job_, "lock");
    trace_sys(&g_logh, 11, 350, "mlname=%s lock file ... [fn=%s]", job_.list_name, path.c_str());
    job_.lock_fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (job_.lock_fd < 0 || flock(job_.lock_fd, LOCK_EX) != 0) abort();
    trace_sys(&g_logh, 11, 352, "mlname=%s ...done lock file [fn=%s]", job_.list_name,
              path.c_str());
    return true;
}

void Delivery::unlock()
{
    if (job_.lock_fd < 0) return;
    trace_sys(&g_logh, 11, 354, "unlock file [ml=%s,fn=%s,nn=%u]", job_.list_name,
              path_of(job_, "lock").c_str(), job_.new_number);
    close(job_.lock_fd);
    job_.lock_fd = -1;
}

static void read_settings(DeliveryJob *job)
{
    ListSettings *s = &job->settings;
    *s = g_mlit;
    (void)get_mlini(job->list_name, job->domain, s);
    s->command_mask |= 1024;
    if (s->reply_to[0] == '\0') strcpy(s->reply_to, job->list_name);
}

static void log_settings(const DeliveryJob *job)
{
    const ListSettings *s = &job->settings;
    trace_sys(&g_logh, 11, 378, "ml.ini name=%s 0x%x %x %d %d %d %d %d %s %d %d %d %s",
              job->list_name, s->command_mask, s->nonmember_command_mask, s->subject_mode,
              s->summary_limit, s->nonmembers_may_post, s->reply_to_mode, s->confirmation,
              s->reply_to, s->precedence, s->journal, s->size_limit, s->web_password);
}

bool Delivery::prepare()
{
    for (const char *name : {"msg", "jnl"})
        mkdir(path_of(job_, name).c_str(), 0777);
    read_settings(&job_);
    if (next_number(&job_) < 0) {
        const int error = errno;
        trace_sys(&g_logh, 1, 360, "mlname=%s get_newno mbx_newno error", job_.list_name);
        trace_sys(&g_logh, 1, 377, "mlname=%s get_newno fail", job_.list_name);
        put_outcome(505, job_.list_name, strerror(error), job_.thread_id);
        ended_ = failure;
        return false;
    }
    log_settings(&job_);
    const int limit = job_.settings.size_limit;
    std::error_code missing;
    if (ml_maxmsgsize == 1 && limit != 0 &&
        fs::file_size(request_->message_file, missing) > static_cast<uintmax_t>(limit) * 1024 &&
        !missing) {
        trace_sys(&g_logh, 1, 414, "mlname=%s Max message size over (%dKB)", job_.list_name, limit);
        put_outcome(538, limit, job_.list_name, job_.thread_id);
        job_.oversize = 1;
    }
    journal_path_ = path_of(job_, "jnl/j." + std::to_string(job_.thread_id));
    if (unlink(journal_path_.c_str()) != 0 && errno != ENOENT)
        return fail_with_path("f_open", 506, 379, journal_path_);
    journal_ = open(journal_path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
    return journal_ >= 0;
}

/* -- the message -- */

void Delivery::write(const std::string &text)
{
    const char *bytes = text.c_str(); /* a text: ends at its first zero byte */
    const size_t size = strlen(bytes);
    if (::write(journal_, bytes, size) != static_cast<ssize_t>(size)) abort();
}

void Delivery::banner(const char *plain, const char *japanese)
{
    if (job_.content_kind != CONTENT_PLAIN && job_.content_kind != CONTENT_JIS) return;
    const std::string path = path_of(job_, job_.content_kind == CONTENT_PLAIN ? plain : japanese);
    recover(path);
    FILE *file = fopen(path.c_str(), "re");
    if (file == nullptr) return;
    char line[4096], converted[4096];
    while (fgets(line, sizeof(line), file) != nullptr) {
        (void)euc2jis(line, converted, sizeof(converted));
        write(converted);
    }
    write("\r\n");
    fclose(file);
}

bool Delivery::is_loop()
{
    const std::string address = std::string(job_.list_name) + "@" + job_.domain;
    return strncasecmp(job_.xml_name, address.c_str(), address.size()) == 0;
}

bool Delivery::loop_found()
{
    trace_sys(&g_logh, 1, 383, "mlname=%s loop detected (X-ML-Name: %s)", job_.list_name,
              job_.xml_name);
    put_outcome(510, job_.xml_name, job_.thread_id);
    ended_ = failure;
    return false;
}

bool Delivery::end_header(const std::string &blank)
{
    job_.parse_state = STATE_FIRST_BODY;
    if (is_loop()) return loop_found();
    make_owner_string(job_.sender);
    job_.access_result = may_post(job_);
    if (job_.access_result < 0) {
        trace_sys(&g_logh, 1, 367, "mlname=%s mail_access get_grant fail", job_.list_name);
        return fail("mail_access fail", 511, 384);
    }
    trace_sys(&g_logh, 11, 385, "mlname=%s mail access status %d %s", job_.list_name,
              job_.access_result, job_.sender);
    char text[LINE_SIZE] = "";
    if (header_add(text, sizeof(text), &job_) < 0) return fail("header_add fail", 512, 386);
    write(text);
    text[0] = '\0';
    if (header_add2(text, sizeof(text), &job_) < 0) return fail("header_add fail", 512, 386);
    write(text);
    text[0] = '\0';
    if (header_sub(text, sizeof(text), &job_) < 0) return fail("header_sub fail", 514, 388);
    if (job_.settings.subject_mode == SUBJECT_EDIT) write(text);
    write(blank);
    banner("msg/bnrtop.txt", "msg/bnrtopj.txt");
    return true;
}

bool Delivery::header_line(std::string line)
{
    if (line.size() > 1024) {
        const int size = static_cast<int>(line.size());
        trace_sys(&g_logh, 1, 382, "mlname=%s char/line too long (header) [sl=%d]", job_.list_name,
                  size);
        put_outcome(509, job_.list_name, size, job_.thread_id);
        ended_ = failure;
        return false;
    }
    if (line[0] == '\r' || line[0] == '\n') return end_header(line);
    line.resize(LINE_SIZE); /* it may grow */
    const int fate = header_proc(line.data(), &job_);
    if (fate == HEADER_FAIL) return fail("header_proc fail", 518, 392);
    if (fate == HEADER_LOOP_CHECK && is_loop()) return loop_found();
    if (fate != HEADER_DROP) write(line);
    return true;
}

bool Delivery::copy_line(const std::string &piece)
{
    if (job_.parse_state == STATE_HEADER) return header_line(piece);
    if (piece.find_first_not_of(" \t\r\n") != std::string::npos) job_.parse_state = STATE_BODY;
    write(piece);
    return true;
}

bool Delivery::copy_message()
{
    job_.parse_state = STATE_HEADER;
    job_.flags |= JOB_FIRST_LINE;
    job_.content_kind = CONTENT_PLAIN;
    job_.header_mask = add_resent_header != 0 ? 61 : 63;
    if (job_.settings.reply_to_mode == REPLYEDIT_NO) job_.header_mask &= ~16u;
    FILE *message = fopen(request_->message_file, "re");
    if (message == nullptr) return fail_with_path("fopen", 508, 381, request_->message_file);
    bool good = true;
    char piece[4096];
    while (good && fgets(piece, sizeof(piece), message) != nullptr) {
        good = copy_line(piece);
        job_.flags &= ~static_cast<uint32_t>(JOB_FIRST_LINE);
    }
    fclose(message);
    if (!good) return false;
    banner("msg/bnrbtm.txt", "msg/bnrbtmj.txt");
    close(journal_);
    journal_ = -1;
    return true;
}

/* -- what becomes of it -- */

bool Delivery::decide()
{
    if (job_.parse_state == STATE_HEADER) return fail("input error (no text)", 528, 404);
    if (job_.settings.nonmembers_may_post == 0 && job_.access_result == 0) return deny("");
    const std::string limit = std::to_string(job_.settings.size_limit);
    if (job_.oversize) return deny(("Max message size over (" + limit + "KB)").c_str());
    return distribute();
}

bool Delivery::submit(const std::string &file, const char *const *to, const char *recipient_file)
{
    char result[MLIST_RESULT_TEXT_SIZE] = {};
    if (request_->submit(file.c_str(), owner_.c_str(), to, recipient_file, result) == 0)
        return false;
    if (result[0] != '\0') thread_context()->host_text = request_->keep_text(result);
    return true;
}

bool Delivery::deny(const char *reason)
{
    if (create_mldeny(&job_, reason) < 0) return fail("create_mldeny fail", 530, 406);
    const std::string notice = path_of(job_, "msg/mldeny." + std::to_string(job_.thread_id));
    const char *const to[] = {job_.sender[0] != '\0' ? job_.sender : owner_.c_str(), nullptr};
    if (!submit(notice, to, nullptr)) return fail("mlist mailfile1 fail", 531, 407);
    fs::remove(notice);
    trace_sys(&g_logh, 5, 408, "Distribution Denied Log: %s %s", job_.list_name, job_.sender);
    return true;
}

bool Delivery::distribute()
{
    if (add_to_digest(job_, job_.new_number) < 0) return fail("set dgtstat fail", 532, 409);
    if (hand_to_archive(&job_) < 0) return fail("mlappend fail", 534, 411);
    job_.new_number += 1;
    return name_and_submit();
}

bool Delivery::name_and_submit()
{
    const std::string numbered = path_of(job_, "jnl/" + std::to_string(job_.new_number));
    if (rename(journal_path_.c_str(), numbered.c_str()) != 0) {
        const int error = errno;
        trace_sys(&g_logh, 1, 410, "mlname=%s can't move %m [%s %s]", job_.list_name,
                  journal_path_.c_str(), numbered.c_str());
        put_outcome(536, job_.list_name, strerror(error), journal_path_.c_str(), numbered.c_str(),
                    job_.thread_id);
        ended_ = failure;
        return false;
    }
    if (has_active(job_)) {
        unlock();
        if (!submit(numbered, nullptr, path_of(job_, "active").c_str())) {
            trace_sys(&g_logh, 1, 413, "mlname=%s mlist mailfile2 fail", job_.list_name);
            put_outcome(537, job_.list_name, job_.thread_id);
            exit_code_ = MLIST_EXIT_LATER;
            ended_ = at_once;
            return false;
        }
    }
    fs::remove(numbered);
    return true;
}

/* -- exits -- */

int Delivery::finish()
{
    if (journal_ >= 0) close(journal_);
    unlock();
    const std::string kept = thread_context()->host_text;
    switch (ended_) {
    case at_once:
        tcbfree();
        return exit_code_;
    case failure:
        tcbfree();
        trace(&g_logh, 1, 1, "%03d: mailing-list unavailable  [%s] <<<", job_.thread_id,
              job_.list_name);
        return get_rcode();
    default:
        break;
    }
    if (kept.substr(0, 3) != "EOF")
        snprintf(request_->result_text, MLIST_RESULT_TEXT_SIZE, "%s", kept.c_str());
    trace(&g_logh, 11, 661, "mailing-list end[%s]", job_.list_name);
    tcbfree();
    return MLIST_EXIT_ACCEPTED;
}

int Delivery::run()
{
    (void)(begin() && take_arguments() && lock() && prepare() && copy_message() && decide());
    return finish();
}

int post(DeliveryRequest *request)
{
    return Delivery(request).run();
}
} // namespace literal
