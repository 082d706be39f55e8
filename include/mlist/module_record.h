/* The host's Module record: what the host hands to ModuleInitialize(). */
#ifndef MLIST_MODULE_RECORD_H
#define MLIST_MODULE_RECORD_H

#include <stddef.h>
#include <stdint.h>

/* Owned by the host and laid out by it; natural alignment, no pointers.  The module writes the
   first two members and reads the third, which the host fills before the call. */
struct ModuleRecord {
    uint32_t interface_word; /* written by the module: MLIST_INTERFACE_WORD */
    char module_name[256];   /* written by the module: "mlist" */
    char host_fqdn[256];     /* the host's fully qualified domain name, NUL-terminated */
};

/* Two 16-bit halves, the lower 0 and the upper 1, stored as one word. */
#define MLIST_INTERFACE_WORD 0x00010000u

#ifdef __cplusplus
static_assert(sizeof(ModuleRecord) == 516);
static_assert(offsetof(ModuleRecord, module_name) == 4);
static_assert(offsetof(ModuleRecord, host_fqdn) == 260);
#endif

#endif
