/* One call of the module for one message, and what the module calls back during it. */
#ifndef HOST_MLISTD_MODHOST_DELIVERY_H
#define HOST_MLISTD_MODHOST_DELIVERY_H

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/base/names.h"
#include "host/base/placeholders.h"
#include "host/base/result.h"
#include "host/base/settings.h"
#include "host/mlistd/modhost/arena.h"
#include "host/mlistd/modhost/library.h"

/* Queues a copy of a message file: the id, or why not. */
using QueueMessage = std::function<Result<std::string>(
    const std::string &file, const std::string &sender, std::span<const std::string> recipients,
    const std::string &list)>;

/* What all deliveries share.  Whoever lets the module copy a control file (a delivery, a check, the
   reading of settings) restores the placeholders when it is done. */
struct ModuleHost {
    const ModuleLibrary &module;
    const Settings &settings;
    const Placeholders &placeholders;
    QueueMessage queue;
};

struct ModuleAnswer {
    int exit_code; /* MLIST_EXIT_ */
    std::string reply_text;
    std::string result_text;
};

/* Runs the module for a posting or (Role::control) a command mail.  The list must exist.  The
   placeholders are back when it returns. */
ModuleAnswer run_module(const ModuleHost &host, const ListAddress &list, const std::string &file);

/* The delivery that the calling thread is in; null outside of one. */
struct CurrentDelivery {
    const ModuleHost &host;
    const ListAddress &list;
    Arena arena;
};
CurrentDelivery *current_delivery();

/* The operations of a Delivery request, on the calling thread's delivery. */
extern "C" {
int submit_operation(const char *file, const char *envelope_sender, const char *const *recipients,
                     const char *recipient_file, char *result_text);
void *allocate_operation(size_t size);
void release_operation(void *memory);
char *keep_text_operation(const char *text);
}

#endif
