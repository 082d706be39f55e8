#include "host/mlistd/net/sessions.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <sys/socket.h>

#include "host/mlistd/hostlog.h"

/* The module's deepest ways, a digest and a posting, were measured at 120 KB; the rest is room for
   sanitizer builds.  Only what is touched costs memory. */
static constexpr size_t STACK_SIZE = 1024 * 1024;

bool SessionThreads::room_for(const std::string &address) const
{
    const auto running = [](const Session &session) { return !session.finished; };
    const auto same = [&](const Session &session) {
        return !session.finished && session.address == address;
    };
    const auto count = [&](auto condition) {
        return static_cast<size_t>(std::count_if(sessions_.begin(), sessions_.end(), condition));
    };
    return count(running) < limits_.sessions &&
           (address.empty() || count(same) < limits_.per_address);
}

SessionThreads::Started SessionThreads::start(Fd &socket, const std::string &address,
                                              const std::string &peer)
{
    reap();
    const std::lock_guard lock(mutex_);
    if (!room_for(address)) return Started::too_many;
    sessions_.push_back({this, pthread_t(), std::move(socket), address, peer, false});
    Session &session = sessions_.back();

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, STACK_SIZE);
    const int failure = pthread_create(&session.thread, &attributes, run, &session);
    pthread_attr_destroy(&attributes);
    if (failure == 0) return Started::yes;
    socket = std::move(session.socket);
    sessions_.pop_back();
    errno = failure;
    return Started::failed;
}

void *SessionThreads::run(void *argument)
{
    Session &session = *static_cast<Session *>(argument);
    SessionThreads &owner = *session.owner;
    int socket;
    {
        const std::lock_guard lock(owner.mutex_); /* start() has filled the record by now */
        socket = session.socket.get();
    }
    try {
        owner.serve_(socket, session.peer);
    } catch (const std::exception &failure) {
        log_error(LOG_SESSION, session.peer + ": the session failed: " + failure.what());
    }
    owner.finish(session);
    return nullptr;
}

void SessionThreads::finish(Session &session)
{
    const std::lock_guard lock(mutex_);
    session.socket.reset();
    session.finished = true;
    finished_.notify_all();
}

/* Threads that have ended still hold their stacks until somebody joins them. */
void SessionThreads::reap()
{
    std::list<Session> ended;
    {
        const std::lock_guard lock(mutex_);
        for (auto session = sessions_.begin(); session != sessions_.end();) {
            const auto next = std::next(session);
            if (session->finished) ended.splice(ended.end(), sessions_, session);
            session = next;
        }
    }
    for (const Session &session : ended)
        pthread_join(session.thread, nullptr);
}

bool SessionThreads::all_finished() const
{
    return std::all_of(sessions_.begin(), sessions_.end(),
                       [](const Session &session) { return session.finished; });
}

void SessionThreads::join_all()
{
    {
        std::unique_lock lock(mutex_);
        finished_.wait(lock, [this] { return all_finished(); });
    }
    reap();
}

void SessionThreads::end(int64_t grace_ms)
{
    {
        std::unique_lock lock(mutex_);
        const bool quiet = finished_.wait_for(lock, std::chrono::milliseconds(grace_ms),
                                              [this] { return all_finished(); });
        for (const Session &session : sessions_)
            if (!quiet && session.socket) shutdown(session.socket.get(), SHUT_RD);
    }
    join_all();
}

size_t SessionThreads::count() const
{
    const std::lock_guard lock(mutex_);
    return static_cast<size_t>(
        std::count_if(sessions_.begin(), sessions_.end(),
                      [](const Session &session) { return !session.finished; }));
}
