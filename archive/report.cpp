#include "archive/report.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "module/host_mem.h"
#include "module/sink.h"

#define REPORT_LINE_SIZE 256

ReportText::~ReportText()
{
    host_release(text_);
}

bool ReportText::make_room(size_t length)
{
    if (length_ + length < capacity_) return true;
    const size_t capacity = capacity_ == 0 ? 1024 : capacity_ * 2;
    HostPtr<char> grown(capacity);
    if (grown.p == nullptr) return false;
    if (length_ > 0) memcpy(grown.p, text_, length_);
    host_release(text_);
    text_ = grown.take();
    capacity_ = capacity;
    return true;
}

void ReportText::add(const char *format, ...)
{
    char line[REPORT_LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const int formatted = vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    if (formatted < 0) return;
    const size_t length = strlen(line);
    if (!make_room(length)) {
        print();
        out_printf("%s", line);
        return;
    }
    memcpy(text_ + length_, line, length);
    length_ += length;
}

void ReportText::print()
{
    if (length_ > 0) {
        text_[length_] = '\0';
        out_printf("%s", text_);
        forget();
    }
    out_flush();
}
