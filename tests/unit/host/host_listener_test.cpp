/* Accepting connections: limits, unix sockets, the end. */
#include <gtest/gtest.h>

#include <atomic>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "host/mlistd/net/listener.h"
#include "host/mlistd/net/stream.h"
#include "mlog.h"
#include "tests/unit/host/scratch.h"

namespace
{

Fd connect_to(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    Fd client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(client.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        client.reset();
    return client;
}

std::string read_all(const Fd &client)
{
    std::string text;
    char block[512];
    for (ssize_t got; (got = recv(client.get(), block, sizeof(block), 0)) > 0;)
        text.append(block, static_cast<size_t>(got));
    return text;
}

/* A server that says "hello" and waits for the other side to leave. */
struct Server {
    Scratch scratch;
    std::atomic<int> served = 0;
    SessionThreads sessions;
    Listener listener{sessions};
    const std::string path = scratch.path("socket");

    explicit Server(size_t limit)
        : sessions({limit, limit}, [this](int socket, const std::string &peer) {
              ++served;
              if (peer == "unix") send(socket, "hello", 5, MSG_NOSIGNAL);
              Stream stream(socket, -1);
              while (stream.fill(steady_ms() + 20'000, false) == Stream::Got::data) {
                  if (stream.buffered().starts_with("throw")) throw std::runtime_error("thrown");
                  stream.consume(stream.buffered().size());
              }
          })
    {
        mlog_set_target("none");
        EXPECT_TRUE(listener.listen_on({path, "", ""}, 0600));
        EXPECT_TRUE(listener.start());
    }
    ~Server()
    {
        listener.stop();
        sessions.end(5000);
    }
};

} // namespace

TEST(Listener, ServesEachConnectionAndTurnsAwayTooMany)
{
    Server server(2);
    {
        const Fd first = connect_to(server.path);
        const Fd second = connect_to(server.path);
        while (server.sessions.count() < 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const Fd third = connect_to(server.path);
        EXPECT_EQ(read_all(third), "421 4.3.2 too many connections, try again later\r\n");
    }
    while (server.sessions.count() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const Fd again = connect_to(server.path);
    shutdown(again.get(), SHUT_WR);
    EXPECT_EQ(read_all(again), "hello");
    EXPECT_EQ(server.served, 3);
}

TEST(Listener, ASessionThatThrowsEndsAlone)
{
    Server server(4);
    const Fd other = connect_to(server.path);
    const Fd bad = connect_to(server.path);
    ASSERT_EQ(write(bad.get(), "throw", 5), 5);
    EXPECT_EQ(read_all(bad), "hello");
    shutdown(other.get(), SHUT_WR);
    EXPECT_EQ(read_all(other), "hello");
}

TEST(Listener, TakesThePlaceOfADeadSocketOnly)
{
    Server server(2);
    SessionThreads none({1, 1}, [](int, const std::string &) {});
    Listener second(none);
    const auto refused = second.listen_on({server.path, "", ""}, 0600);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, EADDRINUSE);
    EXPECT_TRUE(connect_to(server.path)) << "the living one is still there";

    const std::string dead = server.scratch.path("dead");
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, dead.c_str(), dead.size() + 1);
        const Fd left(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(left.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    }
    Listener third(none);
    EXPECT_TRUE(third.listen_on({dead, "", ""}, 0640));
    struct stat status;
    ASSERT_EQ(stat(dead.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
    third.stop();
    EXPECT_NE(stat(dead.c_str(), &status), 0) << "removed with the listener";
}

TEST(Listener, EndsSessionsAfterTheGrace)
{
    auto server = std::make_unique<Server>(2);
    const Fd client = connect_to(server->path);
    while (server->sessions.count() == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const int64_t start = steady_ms();
    server->listener.stop();
    server->sessions.end(50);
    EXPECT_LT(steady_ms() - start, 5000);
    EXPECT_EQ(server->sessions.count(), 0u);
    EXPECT_FALSE(connect_to(server->path));
}

TEST(Listener, ListensOnTheNetworkWhereItIsTold)
{
    SessionThreads none({1, 1}, [](int, const std::string &) {});
    Listener listener(none);
    ASSERT_TRUE(listener.listen_on({"", "127.0.0.1", "0"}, 0));
    EXPECT_TRUE(listener.listens());
    EXPECT_FALSE(listener.listen_on({"", "192.0.2.1", "2424"}, 0)) << "not an address of ours";
}
