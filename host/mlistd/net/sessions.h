/* Threads of sessions: one for each connection, counted, and ended with the daemon. */
#ifndef HOST_MLISTD_NET_SESSIONS_H
#define HOST_MLISTD_NET_SESSIONS_H

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <pthread.h>
#include <string>

#include "host/base/fd.h"

/* Serves one connection on its own thread.  The socket stays the caller's.  An exception ends
   this session and no other. */
using ServeConnection = std::function<void(int socket, const std::string &peer)>;

struct SessionLimits {
    size_t sessions = 64;
    size_t per_address = 32; /* of one network address; unix sockets have none */
};

class SessionThreads
{
  public:
    SessionThreads(const SessionLimits &limits, ServeConnection serve)
        : limits_(limits), serve_(std::move(serve))
    {
    }
    ~SessionThreads() { join_all(); }

    enum class Started : uint8_t { yes, too_many, failed };

    /* A thread for the connection; where there is none to be had the socket is given back.
       address "" is not counted for itself. */
    Started start(Fd &socket, const std::string &address, const std::string &peer);

    /* Waits until the sessions have ended by themselves, at most so long, then cuts their
       connections; what is in the module is waited for.  Call once no start() can follow. */
    void end(int64_t grace_ms);

    [[nodiscard]] size_t count() const;

  private:
    struct Session {
        SessionThreads *owner;
        pthread_t thread;
        Fd socket;
        std::string address;
        std::string peer;
        bool finished = false;
    };
    static void *run(void *session);
    void finish(Session &session);
    void reap();
    void join_all();
    bool room_for(const std::string &address) const;
    bool all_finished() const;

    const SessionLimits limits_;
    const ServeConnection serve_;
    mutable std::mutex mutex_;
    std::condition_variable finished_;
    std::list<Session> sessions_;
};

#endif
