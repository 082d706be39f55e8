/* A mailbox with an open handle that checks for what others did. */
#ifndef TESTS_ARCHIVE_CHECKED_BOX_H
#define TESTS_ARCHIVE_CHECKED_BOX_H

#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

struct CheckedBox {
    Box box;
    OutCapture out;
    MailboxHandle *handle;
    explicit CheckedBox(int messages, int mode = 0)
    {
        box.append_samples(messages);
        handle = list_mbx_open(box.path(), mode);
        out.take();
        take_log();
    }
    ~CheckedBox() { list_mbx_close(handle); }

    /* What others did is noticed although the clock has not moved on. */
    std::string check()
    {
        handle->mode |= MAILBOX_FORCE_CHECK;
        mlmbx_checknewmail(handle);
        return out.take();
    }
    std::string check2()
    {
        handle->mode |= MAILBOX_FORCE_CHECK;
        mlmbx_checknewmail2(handle);
        return out.take();
    }
    void remove(uint32_t uid)
    {
        Records records = box.index();
        std::erase_if(records, [&](const IndexRecord &record) {
            return &record != &records[0] && record.uid == uid;
        });
        box.put_index(records);
    }
    uint32_t count() const { return handle->index[0].header_size; }
};

#endif
