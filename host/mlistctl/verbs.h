/* The verbs of mlistctl.  Each does one thing, shows the answer, and returns the exit status; a
   failure is thrown. */
#ifndef HOST_MLISTCTL_VERBS_H
#define HOST_MLISTCTL_VERBS_H

#include <optional>
#include <string>
#include <vector>

#include "host/base/settings.h"
#include "host/mlistctl/output.h"

/* What the command line said. */
struct Arguments {
    std::string config; /* the daemon's configuration file, or "" */
    bool json = false;
    bool verbose = false;
    bool repair = false;             /* list check: missing files, "active", "digest" */
    bool repair_archive = false;     /* list check: the index, from the message files */
    std::string list;                /* LIST@DOMAIN, or "" for all */
    std::vector<std::string> set;    /* list create: KEY=VALUE */
    std::string status;              /* member set: "on", "off" or "digest" */
    std::vector<std::string> words;  /* addresses or domains; "-" reads standard input */
    std::string file;                /* post: "-" reads standard input */
    std::optional<std::string> from; /* post: envelope sender; none takes the message's From */
};

int list_create(const Arguments &arguments, const Settings &settings, Output &output);
int list_show(const Arguments &arguments, const Settings &settings, Output &output);
int list_check(const Arguments &arguments, const Settings &settings, Output &output);
int member_add(const Arguments &arguments, const Settings &settings, Output &output);
int member_remove(const Arguments &arguments, const Settings &settings, Output &output);
int member_list(const Arguments &arguments, const Settings &settings, Output &output);
int member_set(const Arguments &arguments, const Settings &settings, Output &output);
int grant_add(const Arguments &arguments, const Settings &settings, Output &output);
int grant_remove(const Arguments &arguments, const Settings &settings, Output &output);
int grant_show(const Arguments &arguments, const Settings &settings, Output &output);
int domain_add(const Arguments &arguments, const Settings &settings, Output &output);
int domain_remove(const Arguments &arguments, const Settings &settings, Output &output);
int domain_show(const Arguments &arguments, const Settings &settings, Output &output);
int confirm_list(const Arguments &arguments, const Settings &settings, Output &output);
int confirm_clean(const Arguments &arguments, const Settings &settings, Output &output);
int push(const Arguments &arguments, const Settings &settings, Output &output);
int post(const Arguments &arguments, const Settings &settings, Output &output);

#endif
