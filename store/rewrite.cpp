/* Rewriting of control files, on top of f_recover() and f_renew() (file_renew.cpp has the table of
   what may lie beside a file, and what it means). */
#include "store/rewrite.h"

#include <errno.h>
#include <string.h>

#include "module/guards.h"
#include "store/file.h"

/* A roster of 100,000 lines is some 3 MB: about fifty writes. */
#define WRITE_BUFFER_SIZE 65536

void abandon_file(FileRecord *record)
{
    if (record == nullptr) return;
    KeepErrno keep;
    record->write_count = 0;
    (void)f_close(record); /* only read, or about to be discarded */
}

ControlRewrite::~ControlRewrite()
{
    abandon_file(source);
    abandon_file(out);
}

void ControlRewrite::close_source()
{
    abandon_file(source);
    source = nullptr;
}

int ControlRewrite::recover(const char *name)
{
    if (control_path(path, job, name) < 0 || f_recover(path) < 0 ||
        name_side_files(path, &side_files_) < 0)
        return log_failure(texts.recover, job->list_name, path);
    return 0;
}

int ControlRewrite::demand(const FailText &missing)
{
    FileRecord *record = f_open(path, "r");
    if (record == nullptr) return log_failure(missing, job->list_name, path);
    abandon_file(record);
    return 0;
}

int ControlRewrite::open_new()
{
    out = open_new_file(&side_files_);
    if (out == nullptr) return log_failure(texts.open_new, job->list_name, new_path());
    (void)Fbuffer(out, WRITE_BUFFER_SIZE); /* without memory for it, lines are written one by one */
    return 0;
}

/* A copy that came out short, as on a full disk, must not stay: put in the place of the file, it
   would lose members.  Test: ChgMember.AShortCopyOnAFullDiskLosesNothing */
int ControlRewrite::open_copy(const FailText &copy)
{
    if (clear_old_file(&side_files_) < 0 || copy_whole(path, new_path()) < 0) {
        (void)log_failure(copy, job->list_name, path, new_path());
        drop_new_file(&side_files_);
        return -1;
    }
    out = f_open(new_path(), "r+");
    return out == nullptr ? log_failure(texts.open_new, job->list_name, new_path()) : 0;
}

int ControlRewrite::open_source(const char *name, bool may_be_missing)
{
    if (control_path(source_path, job, name) == 0) source = f_open(source_path, "r");
    if (source != nullptr || (may_be_missing && errno == ENOENT)) return 0;
    return log_failure(texts.open_source, job->list_name, source_path);
}

int ControlRewrite::write(const char *bytes, size_t size)
{
    return Fputb(bytes, size, out) < 0 ? log_failure(texts.write, job->list_name, new_path()) : 0;
}

int ControlRewrite::write_run()
{
    if (run_size_ == 0) return 0;
    const uint32_t size = run_size_;
    run_size_ = 0;
    return write(run_, size);
}

int ControlRewrite::drain(const FailText &fail)
{
    if (write_run() < 0) return -1;
    return Fdrain(out) < 0 ? log_failure(fail, job->list_name, new_path()) : 0;
}

int ControlRewrite::next(LineView *line_out)
{
    if (source != nullptr && view_buffered(line_out, source)) {
        unended = false;
        return 1;
    }
    if (write_run() < 0) return -1; /* the read-ahead is about to be filled anew */
    const int got = source == nullptr ? 0 : Fview(line_out, joined_, source);
    if (got > 0) {
        unended = !ends_line(*line_out);
        return got;
    }
    const int read_errno = errno;
    if (drain(texts.write) < 0) return -1; /* an earlier line's failure comes first */
    errno = read_errno;
    return got < 0 ? log_failure(texts.read, job->list_name, source_path) : 0;
}

/* Whether the line's bytes, CR LF included, lie in what was read as they are to be written. */
static bool is_verbatim(const LineView &line, const FileRecord *source)
{
    return line.end_size == 2 && !line.split_end && source != nullptr &&
           line.text >= source->area && line.text < source->area + source->area_size;
}

bool ControlRewrite::start_run(const LineView &line)
{
    if (!is_verbatim(line, source)) return false;
    run_ = line.text;
    run_size_ = line.size + line.end_size;
    return true;
}

bool ControlRewrite::extend_run(const LineView &line)
{
    if (run_size_ == 0 || line.text != run_ + run_size_ || !is_verbatim(line, source)) return false;
    run_size_ += line.size + line.end_size;
    return true;
}

/* A line end that two reads brought in is handed out as CR CR LF.  Written back like that, a long
   roster would gather carriage returns, one a rewrite.
   Test: AddMember.LinesAtTheBordersOfReadBlocksStayAsTheyAre */
int ControlRewrite::keep(const LineView &line)
{
    if (extend_run(line)) return 0;
    if (write_run() < 0) return -1;
    if (start_run(line)) return 0;
    LineView kept = line;
    if (kept.split_end) --kept.size;
    copy_view(text_, kept);
    return write(text_, kept.size + (kept.ended ? 2 : 0));
}

int ControlRewrite::put(const char *text, const FailText &fail)
{
    if (write_run() < 0) return -1;
    return Fputs(text, out) < 0 ? log_failure(fail, job->list_name, new_path()) : 0;
}

int ControlRewrite::discard()
{
    if (drain(texts.write) < 0) return -1;
    abandon_file(source);
    abandon_file(out);
    source = out = nullptr;
    drop_new_file(&side_files_);
    return 0;
}

int ControlRewrite::commit()
{
    if (write_run() < 0) return -1;
    close_source();
    const int closed = f_close(out);
    out = nullptr;
    if (closed == 0) return log_failure(texts.close, job->list_name, new_path());
    return f_renew(path) < 0 ? log_failure(texts.renew, job->list_name, path) : 0;
}
