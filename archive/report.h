/* Untagged lines of one operation: collected while the index is locked, printed afterwards, so
   that a reader of the sink who stops reading never keeps the lock from others. */
#ifndef ARCHIVE_REPORT_H
#define ARCHIVE_REPORT_H

#include <stddef.h>

class ReportText
{
  public:
    ReportText() = default;
    ~ReportText();
    ReportText(const ReportText &) = delete;
    ReportText &operator=(const ReportText &) = delete;

    /* Appends one line of at most 255 characters.  Without memory the lines so far are printed at
       once: late is better than lost. */
    void add(const char *format, ...) __attribute__((format(printf, 2, 3)));

    /* Prints what was collected, in order, to the thread's sink, and forgets it. */
    void print();

    void forget() { length_ = 0; }

  private:
    bool make_room(size_t length);
    char *text_ = nullptr;
    size_t length_ = 0, capacity_ = 0;
};

#endif
