/* What the calling thread printed to its sink while the object lived. */
#ifndef TESTS_OUT_CAPTURE_H
#define TESTS_OUT_CAPTURE_H

#include <stdio.h>

#include <string>

class OutCapture
{
  public:
    OutCapture();
    ~OutCapture();
    OutCapture(const OutCapture &) = delete;
    OutCapture &operator=(const OutCapture &) = delete;
    std::string take(); /* the text since the last take */

  private:
    char *text_ = nullptr;
    size_t size_ = 0;
    FILE *stream_ = nullptr;
};

#endif
