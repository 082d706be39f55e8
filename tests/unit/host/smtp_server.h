/* An SMTP server on 127.0.0.1 that does what a test tells it to. */
#ifndef TESTS_UNIT_HOST_SMTP_SERVER_H
#define TESTS_UNIT_HOST_SMTP_SERVER_H

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct SmtpScript {
    std::string greeting = "220 ready\r\n";
    std::string ehlo = "250-me\r\n250-PIPELINING\r\n250-8BITMIME\r\n250 SIZE 1000000\r\n";
    std::string helo = "250 me\r\n";
    /* By command line ("RCPT TO:<a@x>", "DATA") or, for the end of the message, "."; else 250 and
       354.  An empty answer closes the connection, "wait" says nothing. */
    std::map<std::string, std::string> answers = {};
    int most_recipients = 1'000'000; /* 452 for more in one transaction */
    int most_messages = 1'000'000;   /* closes after that many on one connection */
    bool close_after_data = false;   /* takes some of the message and goes */
    bool flood = false;              /* the greeting never ends */
};

class SmtpServer
{
  public:
    explicit SmtpServer(SmtpScript script);
    ~SmtpServer();

    std::string port() const { return port_; }
    /* What was said, a line each; what was taken as messages; how many connections there were. */
    std::vector<std::string> commands();
    std::vector<std::string> messages();
    int connections() const { return connections_; }
    /* Returns when it has closed so many of them. */
    void wait_until_closed(int connections) const;
    /* The most commands that came before their predecessor was answered. */
    int longest_row() const { return longest_row_; }

  private:
    struct Talk;
    void serve();
    void talk(int socket);
    bool answer(Talk &talk, const std::string &line);
    bool take_message(Talk &talk);

    const SmtpScript script_;
    int listener_;
    int wake_[2];
    std::string port_;
    std::mutex mutex_;
    std::vector<std::string> commands_, messages_;
    std::atomic<int> connections_{0}, closed_{0}, longest_row_{0};
    std::vector<std::thread> talks_;
    std::thread server_;
};

#endif
