/* Listening sockets and the thread that accepts from them. */
#ifndef HOST_MLISTD_NET_LISTENER_H
#define HOST_MLISTD_NET_LISTENER_H

#include <string>
#include <thread>
#include <vector>

#include "host/base/endpoint.h"
#include "host/base/fd.h"
#include "host/base/result.h"
#include "host/mlistd/net/sessions.h"

class Listener
{
  public:
    /* sessions must outlive the listener. */
    explicit Listener(SessionThreads &sessions) : sessions_(sessions) {}
    ~Listener() { stop(); }

    /* Binds; a unix socket gets the mode, and takes the place of one that nobody listens on. */
    Result<void> listen_on(const Endpoint &endpoint, mode_t socket_mode);

    /* Takes over a socket that listens already (passed by the service manager). */
    void adopt(Fd socket);

    [[nodiscard]] bool listens() const { return !sockets_.empty(); }

    /* Accepts from now on, on a thread of its own. */
    Result<void> start();

    /* Accepts no more, closes the sockets, removes those it made in the file system. */
    void stop();

  private:
    void run();
    void accept_from(int socket);
    Result<void> bind_unix(const std::string &path, mode_t mode);
    Result<void> bind_network(const Endpoint &endpoint);

    SessionThreads &sessions_;
    std::vector<Fd> sockets_;
    std::vector<std::string> made_paths_;
    Fd stop_event_;
    std::thread thread_;
};

#endif
