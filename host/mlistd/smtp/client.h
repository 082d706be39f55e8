/* The way out over a relay: many recipients in one transaction, commands in rows where the server
   takes them so, an answer for each recipient, connections used again. */
#ifndef HOST_MLISTD_SMTP_CLIENT_H
#define HOST_MLISTD_SMTP_CLIENT_H

#include <stdint.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/endpoint.h"
#include "host/mlistd/smtp/connection.h"
#include "host/mlistd/spool/transport.h"

struct SmtpSettings {
    Endpoint server;
    std::string hostname = "localhost"; /* said in EHLO */
    std::chrono::milliseconds connect_timeout{30'000};
    std::chrono::milliseconds command_timeout{300'000}; /* greeting, EHLO, MAIL and all RCPT */
    std::chrono::milliseconds data_timeout{180'000};    /* DATA, and each piece of the message */
    std::chrono::milliseconds end_timeout{600'000};     /* the answer to a whole message */
    unsigned messages_a_connection = 500;
};

class SmtpTransport : public Transport
{
  public:
    explicit SmtpTransport(SmtpSettings settings);
    ~SmtpTransport() override;

    bool deliver(const OutboundMessage &message, const std::string &sender,
                 std::span<const std::string_view> recipients, std::span<Answer> answers) override;
    void idle() override;
    void interrupt() override;

  private:
    struct Session;
    struct Transaction;
    Result<void> ensure_session();
    Result<void> greet(Session &session);
    Result<SmtpReply> command(std::string_view line);
    std::string mail_command(const Transaction &transaction) const;
    bool sort_out(Transaction &transaction);
    Result<void> run(Transaction &transaction);
    Result<void> name_in_a_row(Transaction &transaction);
    Result<void> name_in_turn(Transaction &transaction);
    Result<void> hand_over(Transaction &transaction);
    Result<void> send_message(Transaction &transaction);
    Result<void> reset();
    void leave();

    const SmtpSettings settings_;
    SmtpInterrupt interrupt_;
    std::unique_ptr<Session> session_;
    std::string scanned_id_; /* of the message whose bytes were looked at last */
    bool eight_bit_ = false; /* what that showed */
};

#endif
