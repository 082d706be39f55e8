/* confirm list, clean: who has been asked to confirm and has not done so. */
#include "host/mlistctl/operands.h"
#include "host/mlistctl/session.h"

#include <cstdio>

static std::string expiry_of(const PendingConfirmation &pending)
{
    if (pending.id[0] == '\0') return "";
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d", pending.year, pending.month,
             pending.day, pending.hour, pending.minute);
    return text;
}

static int keep_pending(const PendingConfirmation *pending, void *argument)
{
    static_cast<std::vector<PendingLine> *>(argument)->push_back(
        {pending->address, expiry_of(*pending), pending->id, pending->valid != 0});
    return 0;
}

static std::vector<PendingLine> pending_of(const Session &session)
{
    std::vector<PendingLine> lines;
    if (mlist_confirm_each(session.get(), keep_pending, &lines) != 0)
        fail_in_module("cannot read the confirmations of " + session.address().name());
    return lines;
}

int confirm_list(const Arguments &arguments, const Settings &settings, Output &output)
{
    const ListAddress list = existing_list(arguments, settings);
    output.pending(pending_of(Session(list)));
    return CTL_OK;
}

int confirm_clean(const Arguments &arguments, const Settings &settings, Output &output)
{
    const ListAddress list = existing_list(arguments, settings);
    size_t before = 0, after = 0;
    {
        const Session session(list);
        before = pending_of(session).size();
        if (mlist_confirm_clean(session.get()) != 0)
            fail_in_module("cannot clean the confirmations of " + list.name());
        after = pending_of(session).size();
    }
    output.cleaned(list.name(), before - after);
    return CTL_OK;
}
