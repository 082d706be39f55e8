/* The way out for those without a mail server: a Maildir for each recipient.

   ROOT/ADDRESS/{tmp,new,cur}, the address in lower case with everything unusual as %XX.  A message
   is written and synced once, in ROOT/.stage, and linked into each new/; its name there comes from
   the submission's id, so that a second try after a crash finds what the first one left. */
#ifndef HOST_MLISTD_OUTBOX_OUTBOX_H
#define HOST_MLISTD_OUTBOX_OUTBOX_H

#include <string>
#include <string_view>
#include <vector>

#include "host/base/result.h"
#include "host/mlistd/spool/transport.h"

/* The address as one path component: never "", never beginning with ".", at most 255 bytes. */
std::string mailbox_name(std::string_view address);

class Outbox : public Transport
{
  public:
    /* root is made when it is missing (its parent must be there). */
    Outbox(std::string root, std::string hostname);

    bool deliver(const OutboundMessage &message, const std::string &sender,
                 std::span<const std::string_view> recipients, std::span<Answer> answers) override;

    /* One copy of the message is written for each batch. */
    size_t batch_size() const override { return 5000; }

  private:
    struct Delivery;
    Result<void> write_stage(Delivery &delivery) const;
    Result<void> make_mailbox(const std::string &name) const;
    Result<void> link_to(Delivery &delivery, const std::string &mailbox) const;
    Result<void> sync_mailboxes(const Delivery &delivery) const;

    const std::string root_;
    const std::string hostname_;
};

#endif
