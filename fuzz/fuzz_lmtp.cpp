/* A whole LMTP connection of a stranger: no input may upset the server, and whatever it hands over
   must be what the module needs. */
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "fuzz/demand.h"
#include "fuzz/memory_directory.h"
#include "host/mlistd/lmtp/session.h"
#include "mlog.h"

namespace
{

/* What the server says must fit into the socket: nobody reads while it talks. */
constexpr size_t INPUT_MAX = 4096;

std::string content_of(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/* CR LF and nothing else at line ends, no NUL, header ended, no Return-Path in it. */
void require_guarantees(const std::string &text)
{
    demand(text.find('\0') == std::string::npos && text.ends_with("\r\n"));
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') demand(i > 0 && text[i - 1] == '\r');
        if (text[i] == '\r') demand(text[i + 1] == '\n');
    }
    const std::string lines = "\r\n" + text;
    const size_t end = lines.find("\r\n\r\n");
    demand(end != std::string::npos);
    std::string header = lines.substr(0, end + 2);
    for (char &c : header)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    demand(header.find("\r\nreturn-path:") == std::string::npos);
}

class Judge : public LmtpHandler
{
  public:
    Reply check_recipient(const ListAddress &recipient, const std::string &) override
    {
        demand(valid_list_name(recipient.list, {"-ctl"}) && valid_domain(recipient.domain));
        return {250, "2.1.5", "recipient ok"};
    }

    Reply deliver(const ListAddress &, const IncomingMail &mail) override
    {
        require_guarantees(content_of(mail.file));
        return {250, "2.0.0", "accepted"};
    }
};

/* The server's settings, and the directory it works in, for the length of the process. */
struct Server {
    LmtpConfig config;

    Server()
    {
        mlog_set_target("none");
        std::string pattern = memory_directory() + "/mlist-fuzz-XXXXXX";
        config.hostname = "h";
        config.control_suffixes = {"-ctl"};
        config.in_directory = mkdtemp(pattern.data());
        config.message_size = 1000;
        config.timeout_ms = 1000;
        config.data_timeout_ms = 1000;
    }
    ~Server() { std::filesystem::remove_all(config.in_directory); }
};

const LmtpConfig &config()
{
    static const Server server;
    return server.config;
}

/* A mail behind the input, so that it also stands inside a transaction. */
void talk(std::string_view input, bool in_data)
{
    int ends[2];
    demand(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    const Fd client(ends[0]);
    const Fd server(ends[1]);
    const std::string head = "LHLO c\r\nMAIL FROM:<a@b>\r\nRCPT TO:<l@d>\r\nDATA\r\n";
    const std::string sent =
        (in_data ? head : "") + std::string(input) + (in_data ? "\r\n.\r\nQUIT\r\n" : "");
    demand(send(client.get(), sent.data(), sent.size(), 0) == static_cast<ssize_t>(sent.size()));
    shutdown(client.get(), SHUT_WR);
    Judge judge;
    LmtpSession(Stream(server.get(), -1), config(), judge, "fuzz").run();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0 || size > INPUT_MAX) return 0;
    const std::string_view input(reinterpret_cast<const char *>(data) + 1, size - 1);
    talk(input, data[0] % 2 == 0);
    return 0;
}
