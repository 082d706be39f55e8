/* post: hands a message to the running daemon, as a mail server would.  Takes no lock. */
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include "host/base/text.h"
#include "host/mlistctl/address.h"
#include "host/mlistctl/lmtp_client.h"
#include "host/mlistctl/verbs.h"

namespace
{

constexpr size_t piece_size = 65536;

/* The message, read as it is sent. */
class MessageFile
{
  public:
    explicit MessageFile(const std::string &file) : name_(file == "-" ? "standard input" : file)
    {
        fd_.reset(file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                              : open(file.c_str(), O_RDONLY | O_CLOEXEC));
        if (!fd_)
            throw Failure{CTL_NO_INPUT, errno_text("cannot open " + name_),
                          "name a file that holds one message, or \"-\""};
    }

    /* The next piece; empty at the end. */
    std::string read_piece()
    {
        std::string piece(piece_size, '\0');
        size_t have = 0;
        while (have < piece_size) {
            ssize_t size = read(fd_.get(), piece.data() + have, piece_size - have);
            if (size < 0 && errno == EINTR) continue;
            if (size < 0) throw Failure{CTL_IO, errno_text("cannot read " + name_), ""};
            if (size == 0) break;
            have += static_cast<size_t>(size);
        }
        piece.resize(have);
        if (piece.find('\0') != std::string::npos)
            throw Failure{CTL_BAD_DATA, name_ + " holds a NUL byte: it is no mail message", ""};
        return piece;
    }

    [[nodiscard]] const std::string &name() const { return name_; }

  private:
    std::string name_;
    Fd fd_;
};

/* Value of the first From: line of a header, continuation lines included. */
std::string from_header(std::string_view head)
{
    std::string value;
    bool inside = false;
    for (std::string_view line : split(head, '\n')) {
        if (line.empty() || line == "\r") break;
        if (inside && line.front() != ' ' && line.front() != '\t') break;
        if (!inside && begins_nocase(line, "From:")) {
            inside = true;
            line.remove_prefix(5);
        }
        if (inside) value += std::string(line);
    }
    return value;
}

std::string bare_address(std::string_view value)
{
    size_t open = value.rfind('<'), close = value.rfind('>');
    if (open != std::string_view::npos && close != std::string_view::npos && open < close)
        return std::string(trim(value.substr(open + 1, close - open - 1)));
    return std::string(trim(value.substr(0, value.find('('))));
}

std::string envelope_sender(const Arguments &arguments, const Settings &settings,
                            std::string_view head)
{
    if (arguments.from) {
        if (!arguments.from->empty() && !valid_mailbox(*arguments.from))
            throw Failure{CTL_USAGE, "'" + one_line(*arguments.from) + "' is not a mail address",
                          "write --from name@domain"};
        return *arguments.from;
    }
    std::string address = bare_address(from_header(head));
    if (valid_mailbox(address)) return address;
    const passwd *user = getpwuid(getuid());
    return std::string(user ? user->pw_name : "nobody") + "@" + host_name(settings);
}

/* A mailbox file's "From " line is no part of the message. */
void drop_mailbox_line(std::string &head)
{
    if (head.starts_with("From ")) head.erase(0, std::min(head.find('\n'), head.size() - 1) + 1);
}

int exit_status_of(int code)
{
    if (code >= 200 && code < 400) return CTL_OK;
    return code >= 400 && code < 500 ? CTL_LATER : CTL_REFUSED;
}

LmtpReply send_message(LmtpClient &client, MessageFile &message, std::string piece)
{
    DataEncoder encoder;
    std::string out;
    for (; !piece.empty(); piece = message.read_piece()) {
        out.clear();
        encoder.encode(piece, out);
        client.send(out);
    }
    out.clear();
    encoder.finish(out);
    client.send(out);
    return client.read_reply();
}

/* The reply that decides: the first that is no success, else that of the message. */
LmtpReply transact(LmtpClient &client, MessageFile &message, std::string head,
                   const std::string &from, const std::string &to, const std::string &host)
{
    LmtpReply reply = client.read_reply();
    for (const std::string &line : {"LHLO " + host, "MAIL FROM:<" + from + ">",
                                    "RCPT TO:<" + to + ">", std::string("DATA")}) {
        if (reply.code >= 400) return reply;
        reply = client.command(line);
    }
    if (reply.code != 354) return reply;
    reply = send_message(client, message, std::move(head));
    client.quit();
    return reply;
}

Endpoint daemon_endpoint(const Settings &settings)
{
    for (const std::string &text : settings.lmtp_listen)
        if (auto endpoint = parse_endpoint(text)) return *endpoint;
    throw Failure{CTL_BAD_CONFIGURATION, "the configuration names no LMTP address",
                  "set lmtp.listen"};
}

} // namespace

int post(const Arguments &arguments, const Settings &settings, Output &output)
{
    if (!valid_mailbox(arguments.list))
        throw Failure{CTL_USAGE, "'" + one_line(arguments.list) + "' is not a list's address",
                      "write --to LIST@DOMAIN"};
    MessageFile message(arguments.file);
    std::string head = message.read_piece();
    drop_mailbox_line(head);
    if (head.empty()) throw Failure{CTL_BAD_DATA, message.name() + " is empty", ""};

    std::string from = envelope_sender(arguments, settings, head);
    LmtpClient client(daemon_endpoint(settings));
    LmtpReply reply =
        transact(client, message, std::move(head), from, arguments.list, host_name(settings));
    output.posted({arguments.list, reply.code, reply.text});
    return exit_status_of(reply.code);
}
