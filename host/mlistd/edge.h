/* What the daemon itself decides about mail to a list, before and after the module does: unknown
   lists, bounces, forged owners, automatic mail at the control address, mail to the owners. */
#ifndef HOST_MLISTD_EDGE_H
#define HOST_MLISTD_EDGE_H

#include "host/mlistd/lmtp/session.h"
#include "host/mlistd/modhost/delivery.h"
#include "host/mlistd/modhost/gate.h"

/* Whether lists' files are in order. */
class ListOrder
{
  public:
    virtual ~ListOrder() = default;
    /* Asked before each delivery; mail waits while the answer is no. */
    virtual bool in_order(const ListAddress &list) = 0;
    /* A delivery to the list met a fault of the machine, maybe between two of its files. */
    virtual void doubt(const ListAddress &list) = 0;
};

class Edge : public LmtpHandler
{
  public:
    Edge(const ModuleHost &host, ListOrder &order)
        : host_(host), order_(order), gate_(static_cast<size_t>(host.settings.module_gate))
    {
    }

    Reply check_recipient(const ListAddress &recipient, const std::string &sender) override;
    Reply deliver(const ListAddress &recipient, const IncomingMail &mail) override;

    /* Mail that the daemon itself wrote: straight to the module, past all that is asked of
       strangers.  Nothing when the list was busy for so long, or is not in order. */
    std::optional<ModuleAnswer> deliver_own(const ListAddress &recipient, const std::string &file,
                                            std::chrono::milliseconds patience);

  private:
    Reply decide(const ListAddress &recipient, const IncomingMail &mail);
    Reply forward_to_owners(const ListAddress &recipient, const IncomingMail &mail);
    Reply hand_to_module(const ListAddress &recipient, const std::string &file);

    const ModuleHost &host_;
    ListOrder &order_;
    DeliveryGate gate_;
};

/* The answer that a module's exit code and reply text stand for. */
Reply reply_for(const ModuleAnswer &answer);

/* Whether the From values may be taken for the list's owner, or for a mailer daemon, by whatever
   rule they are reduced to an address; errs on the side of yes. */
bool claims_to_be_owner(const std::string &from, const std::string &list);
bool claims_to_be_daemon(const std::string &from);

/* The address that the module will take for the sender's, as it reduces From values. */
std::string who_asks(const std::string &from);

/* Mail that a program wrote (RFC 3834): it must not be taken for commands. */
bool is_automatic(const HeaderFacts &facts);

#endif
