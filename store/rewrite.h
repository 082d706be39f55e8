/* The one way in which a control file is rewritten: filter it line by line, or edit a copy of it,
   beside the file, then put the result in its place.  No caller knows the side files' names.

       ControlRewrite rewrite(job, texts);
       if (rewrite.recover("member") < 0 || rewrite.open_new() < 0 || ...) return -1;
       while ((more = rewrite.next(&line)) > 0)
           if (wanted(line) && rewrite.keep(line) < 0) return -1;
       return more < 0 ? -1 : rewrite.commit();

   Every failure is logged here, with the text that the caller's row has for that step, and leaves
   its cause in errno.  What a rewrite that was given up leaves beside the file is discarded by the
   next one.  Call under the list lock. */
#ifndef STORE_REWRITE_H
#define STORE_REWRITE_H

#include "module/job.h"
#include "store/fail_text.h"
#include "store/ntio_view.h"
#include "store/side_files.h"

struct RewriteTexts {
    FailText recover;
    FailText open_new;    /* path: the new file */
    FailText open_source; /* path: the file read */
    FailText write;       /* path: the new file */
    FailText read;        /* path: the file read */
    FailText close;       /* path: the new file */
    FailText renew;
};

/* Closes a file that was only read, or whose contents no longer matter: what was collected for it
   is not written.  Null is allowed; errno is kept. */
void abandon_file(FileRecord *record);

struct ControlRewrite {
    ControlRewrite(DeliveryJob *delivery, const RewriteTexts &row) : job(delivery), texts(row) {}
    ControlRewrite(const ControlRewrite &) = delete;
    ControlRewrite &operator=(const ControlRewrite &) = delete;
    ~ControlRewrite(); /* closes; errno is kept */

    /* Finishes or discards an earlier replacement of the list's file.  First of all. */
    [[nodiscard]] int recover(const char *name);

    /* Whether the file can be read; logs the given text when not. */
    [[nodiscard]] int demand(const FailText &missing);

    /* Starts an empty new file. */
    [[nodiscard]] int open_new();

    /* Starts the new file as a copy of the file, open for reading and writing as `out`. */
    [[nodiscard]] int open_copy(const FailText &copy);

    /* Opens a file of the list for reading; one that may be missing reads as empty. */
    [[nodiscard]] int open_source(const char *name, bool may_be_missing = false);

    /* The next line of the source: 1, 0 at its end, -1.  At the end all lines kept have been
       written. */
    [[nodiscard]] int next(LineView *line_out);

    /* Writes a line with its line end, or a text (with a failure text of its own); collected, so
       that a failure may be reported by a later call. */
    [[nodiscard]] int keep(const LineView &line);
    [[nodiscard]] int put(const char *text) { return put(text, texts.write); }
    [[nodiscard]] int put(const char *text, const FailText &fail);

    /* Writes what was collected. */
    [[nodiscard]] int drain(const FailText &fail);

    /* Nothing is to change: closes and removes the new file. */
    [[nodiscard]] int discard();

    /* Closes, syncs and puts the new file in place. */
    [[nodiscard]] int commit();

    DeliveryJob *const job;
    const RewriteTexts &texts;
    FileRecord *source = nullptr;
    FileRecord *out = nullptr;
    bool unended = false; /* the last line read has no line end */
    const char *new_path() const { return side_files_.new_path; }
    char path[PATH_SIZE] = "";
    char source_path[PATH_SIZE] = "";

  private:
    SideFiles side_files_ = {};
    /* Lines kept one after the other, as they lie in the source's read-ahead: written at once. */
    const char *run_ = nullptr;
    uint32_t run_size_ = 0;
    bool start_run(const LineView &line);
    bool extend_run(const LineView &line);
    int write_run();
    int write(const char *bytes, size_t size);
    void close_source();
    char joined_[VIEW_LINE_SIZE];
    char text_[VIEW_LINE_SIZE];
};

#endif
