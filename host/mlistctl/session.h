/* A list under its lock, for as long as the object lives. */
#ifndef HOST_MLISTCTL_SESSION_H
#define HOST_MLISTCTL_SESSION_H

#include "host/base/names.h"
#include "mlist/admin.h"

class Session
{
  public:
    /* Waits for the lock; throws a Failure when the list's directory is missing or closed to us. */
    explicit Session(const ListAddress &address);
    ~Session() { mlist_session_close(session_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    [[nodiscard]] ListSession *get() const { return session_; }
    [[nodiscard]] const ListAddress &address() const { return address_; }

  private:
    ListAddress address_;
    ListSession *session_;
};

#endif
