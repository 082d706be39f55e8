#include "tests/reference/posting_archive.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "mlist/mlist.h"
#include "module/tcb.h"
#include "module/unix_sv.h"
#include "tests/reference/index_literal.h"
#include "tests/reference/posting_files.h"

namespace fs = std::filesystem;

namespace literal
{
static std::string box_of(const DeliveryJob *job)
{
    return std::string(g_mbox_list) + "/" + job->domain + "/" + job->list_name + "/INBOX";
}

/* Hands what an operation logged and printed to the module's front ends.  Whether it logged. */
static bool pass_on(Log *log, int error)
{
    fputs(log->printed.c_str(), mlist_get_output());
    for (const std::string &line : log->lines) {
        int level = 0, number = 0, start = 0;
        sscanf(line.c_str(), "%d/%d %n", &level, &number, &start);
        errno = error;
        trace_sys(&g_logh, level, number, "%s", line.c_str() + start);
    }
    const bool logged = !log->lines.empty();
    *log = {};
    errno = error;
    return logged;
}

/* Without an index there is nothing to open, and nothing to put a new one into. */
static bool open_mailbox(const std::string &path, uint32_t mode, Mailbox *box)
{
    Log log;
    if (fs::exists(path + "/#mix")) {
        const bool opened = open(path, mode, box, &log);
        (void)pass_on(&log, 0);
        return opened;
    }
    log.lines = {"1/602 mbx_open(): mbx_openidx failed No such file or directory",
                 "11/636 mbx_rebuild: rebuild " + path,
                 "11/637 mbx_rebuild: rebuild " + path + "/#mix: No such file or directory"};
    (void)pass_on(&log, ENOENT);
    return false;
}

int next_number(DeliveryJob *job)
{
    const std::string path = box_of(job);
    Mailbox box;
    if (!open_mailbox(path, MAILBOX_NO_WRITE_BACK, &box)) {
        fprintf(mlist_get_output(), "mbxopen failure [fn=%s]\n", path.c_str());
        trace_sys(&g_logh, 1, 1, "mbxnewno():mbxopen failure[fn=%s]", path.c_str());
        setrc_tempfail();
        return -1;
    }
    job->new_number = box.index[0].uid;
    Log log;
    close(&box, &log);
    return 0;
}

/* -- keep counts other than zero -- */

static Source measure_journal(const DeliveryJob *job)
{
    const std::string path = path_of(*job, "jnl/j." + std::to_string(job->thread_id));
    Source source = {path, 0, 0, static_cast<uint32_t>(fs::file_size(path))};
    for (const std::string &line : lines_of(path, 8192)) {
        source.header_size += static_cast<uint32_t>(line.size());
        if (line == "\r\n") break;
    }
    return source;
}

static void trim(Mailbox *box, int32_t keep, Log *log)
{
    const int count = static_cast<int>(box->index.size());
    if (count <= 1 || count <= keep) return;
    for (int i = 1; i <= count - keep && i < count; ++i)
        box->index[static_cast<size_t>(i)].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
    expunge(box, false, MESSAGE_DELETED, log);
}

static int append_to_archive(DeliveryJob *job)
{
    const std::string path = box_of(job);
    const Source source = measure_journal(job);
    Mailbox box;
    if (!open_mailbox(path, 0, &box)) return -1; /* cannot be: it has just been opened */
    Log log;
    append(path, {source}, &log);
    const bool failed = pass_on(&log, ENOENT);
    if (failed) {
        trace_sys(&g_logh, 1, 296, "mlname=%s mbxappend error %m [fn=%s]", job->list_name,
                  path.c_str());
    } else {
        box.mode |= MAILBOX_FORCE_CHECK;
        trim(&box, job->settings.journal, &log);
    }
    close(&box, &log);
    (void)pass_on(&log, errno);
    return failed ? -1 : 0;
}

/* -- a keep count of zero -- */

static void put(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

static int empty_archive(DeliveryJob *job)
{
    const std::string mix = box_of(job) + "/#mix";
    put(mix + ".new", contents_of(mix));
    const std::string bytes = contents_of(mix + ".new");
    std::vector<IndexRecord> index(bytes.size() / sizeof(IndexRecord));
    memcpy(index.data(), bytes.data(), index.size() * sizeof(IndexRecord));
    IndexRecord header = index[0];
    header.uid += 1;
    header.header_size = 1; /* the count of records */
    put(mix + ".new", std::string(reinterpret_cast<const char *>(&header), sizeof(header)));
    put(mix + ".old", contents_of(mix));
    put(mix, contents_of(mix + ".new"));
    fs::remove(mix + ".old");
    fs::remove(mix + ".new");
    for (size_t i = 1; i < index.size(); ++i)
        fs::remove(box_of(job) + "/#msg/" + std::to_string(index[i].uid));
    return 0;
}

int hand_to_archive(DeliveryJob *job)
{
    return job->settings.journal == 0 ? empty_archive(job) : append_to_archive(job);
}
} // namespace literal
