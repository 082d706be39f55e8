#include "tests/support/out_capture.h"

#include <stdlib.h>

#include "mlist/output.h"

OutCapture::OutCapture()
{
    stream_ = open_memstream(&text_, &size_);
    mlist_set_output(stream_);
}

OutCapture::~OutCapture()
{
    mlist_set_output(nullptr);
    fclose(stream_);
    free(text_);
}

std::string OutCapture::take()
{
    fflush(stream_);
    std::string text(text_, size_);
    rewind(stream_);
    fflush(stream_);
    return text;
}
