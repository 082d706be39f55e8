#include "host/mlistctl/session.h"

#include <cerrno>

#include "host/mlistctl/failure.h"

Session::Session(const ListAddress &address)
    : address_(address), session_(mlist_session_open(address.list.c_str(), address.domain.c_str()))
{
    if (session_ == nullptr)
        fail_in_module("the list " + address.name() + " cannot be locked: " + errno_text("lock"));
}
