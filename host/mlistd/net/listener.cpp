#include "host/mlistd/net/listener.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "host/mlistd/hostlog.h"

static constexpr int BACKLOG = 128;

/* -- binding -- */

static Fd new_socket(int family)
{
    return Fd(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/* Whether somebody answers there; only then is the path taken. */
static bool somebody_listens(const sockaddr_un &address)
{
    const Fd probe = new_socket(AF_UNIX);
    return probe &&
           connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
}

Result<void> Listener::bind_unix(const std::string &path, mode_t mode)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1); /* parse_endpoint() limits it */
    struct stat there;
    if (lstat(path.c_str(), &there) == 0 && S_ISSOCK(there.st_mode)) {
        if (somebody_listens(address)) return Error{"unix:" + path + ": is in use", EADDRINUSE};
        unlink(path.c_str());
    }
    Fd socket = new_socket(AF_UNIX);
    if (!socket || bind(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        return system_error("unix:" + path);
    made_paths_.push_back(path);
    if (chmod(path.c_str(), mode) != 0 || listen(socket.get(), BACKLOG) != 0)
        return system_error("unix:" + path);
    sockets_.push_back(std::move(socket));
    return {};
}

static Result<Fd> bind_address(const addrinfo &address, const std::string &name)
{
    Fd socket = new_socket(address.ai_family);
    const int on = 1;
    if (!socket) return system_error(name);
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (address.ai_family == AF_INET6)
        setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on));
    if (bind(socket.get(), address.ai_addr, address.ai_addrlen) != 0 ||
        listen(socket.get(), BACKLOG) != 0)
        return system_error(name);
    return socket;
}

Result<void> Listener::bind_network(const Endpoint &endpoint)
{
    const std::string name = endpoint.host + ":" + endpoint.port;
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo *found = nullptr;
    const int failure = getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &found);
    if (failure != 0) return Error{name + ": " + gai_strerror(failure), 0};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    for (const addrinfo *address = found; address != nullptr; address = address->ai_next) {
        auto socket = bind_address(*address, name);
        if (!socket) return socket.error();
        sockets_.push_back(std::move(*socket));
    }
    return {};
}

Result<void> Listener::listen_on(const Endpoint &endpoint, mode_t socket_mode)
{
    return endpoint.path.empty() ? bind_network(endpoint) : bind_unix(endpoint.path, socket_mode);
}

void Listener::adopt(Fd socket)
{
    sockets_.push_back(std::move(socket));
}

/* -- accepting -- */

/* "192.0.2.1" and "192.0.2.1:4711"; for a unix socket "" and "unix". */
static std::pair<std::string, std::string> names_of(const sockaddr_storage &address, socklen_t size)
{
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (address.ss_family == AF_UNIX ||
        getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, host, sizeof(host), port,
                    sizeof(port), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return {"", "unix"};
    return {host, std::string(host) + ":" + port};
}

static void turn_away(int socket)
{
    static constexpr char text[] = "421 4.3.2 too many connections, try again later\r\n";
    send(socket, text, sizeof(text) - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
}

/* The descriptors or the memory of accept() have run out: it would fail again at once. */
static void pause_after(int failure)
{
    log_error(LOG_ACCEPT, std::string("cannot accept: ") + strerrordesc_np(failure));
    const timespec pause{0, 200'000'000};
    nanosleep(&pause, nullptr);
}

void Listener::accept_from(int socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    Fd peer(accept4(socket, reinterpret_cast<sockaddr *>(&address), &size,
                    SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!peer) {
        const int failure = errno;
        if (failure == EMFILE || failure == ENFILE || failure == ENOBUFS || failure == ENOMEM)
            pause_after(failure);
        return;
    }
    const int on = 1;
    if (address.ss_family != AF_UNIX)
        setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    const auto [host, name] = names_of(address, size);
    if (sessions_.start(peer, host, name) == SessionThreads::Started::yes) return;
    log_warning(LOG_TOO_MANY, "too many connections, " + name + " turned away");
    turn_away(peer.get());
}

Result<void> Listener::start()
{
    stop_event_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!stop_event_) return system_error("eventfd");
    thread_ = std::thread([this] { run(); });
    return {};
}

void Listener::run()
{
    std::vector<pollfd> waits;
    for (const Fd &socket : sockets_)
        waits.push_back({socket.get(), POLLIN, 0});
    waits.push_back({stop_event_.get(), POLLIN, 0});
    for (;;) {
        const int ready = poll(waits.data(), waits.size(), -1);
        if (ready < 0 && errno != EINTR) pause_after(errno);
        if (ready <= 0) continue;
        if (waits.back().revents != 0) return;
        for (const pollfd &wait : waits)
            if (wait.revents != 0) accept_from(wait.fd);
    }
}

void Listener::stop()
{
    if (thread_.joinable()) {
        eventfd_write(stop_event_.get(), 1);
        thread_.join();
    }
    sockets_.clear();
    for (const std::string &path : made_paths_)
        unlink(path.c_str());
    made_paths_.clear();
}
