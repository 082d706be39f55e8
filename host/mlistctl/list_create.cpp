/* list create: leaves a list that can be posted to at once.

   The list exists from the moment its "init" does, and that is written last: whatever cuts a run
   short, the same command run again finishes it. */
#include "host/mlistctl/address.h"
#include "host/mlistctl/paths.h"
#include "host/mlistctl/session.h"
#include "host/mlistctl/settings_text.h"
#include "host/mlistctl/verbs.h"

#include <unistd.h>

#include "mlist/archive.h"

static void refuse_existing(const ListAddress &address)
{
    if (!list_exists(address)) return;
    throw Failure{CTL_CANNOT_CREATE, "the list " + address.name() + " exists; nothing was changed",
                  "look at it with: mlistctl list check " + address.name()};
}

/* What the module opens and never makes itself. */
static void make_control_files(const Session &session)
{
    const ListAddress &address = session.address();
    if (mlist_session_check_files(session.get()) != 0)
        fail_in_module("cannot make the files of " + address.name());
    for (const char *name :
         {"digest", "active", "member", "status", "dgtstat", "confirm", "grant", "subscribe"})
        make_empty_file(control_file(address, name));
}

static void make_archive(const ListAddress &address)
{
    /* The driver would make a missing parent a mailbox too. */
    make_directories(box_directory(address));
    std::string archive = archive_directory(address);
    if (access((archive + "/#mix").c_str(), F_OK) == 0) return; /* of a run cut short */
    if (mlmbx_create(archive.c_str()) != 1) fail_in_module("cannot make the archive " + archive);
}

int list_create(const Arguments &arguments, const Settings &settings, Output &output)
{
    ListAddress address = read_list_address(arguments.list, settings.control_suffixes);
    SettingValues values = default_settings(address);
    apply_settings(values, arguments.set);
    refuse_existing(address);

    make_directories(control_file(address));
    {
        Session session(address);
        refuse_existing(address); /* another run may have won the lock */
        make_control_files(session);
        make_archive(address);
        write_durably(control_file(address, "init"), control_file(address, "init.making"),
                      init_text(values));
    }
    output.created(address.name());
    return CTL_OK;
}
