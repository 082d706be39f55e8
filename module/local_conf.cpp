/* The host's local configuration file: lines of a key, "=" and a decimal number. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "module/ascii.h"
#include "module/module_vars.h"

#define LOCAL_CONF_VALUES 12
#define LOCAL_CONF_LINE 128

/* In the order of the values.  No key is the beginning of another, so a line matches one at most.
 */
static const char *const local_conf_keys[LOCAL_CONF_VALUES] = {
    "smtp_port=",        "pop_port=",          "pops_port=",     "imap_port=",
    "imaps_port=",       "http_port=",         "https_port=",    "force_auth=",
    "ml_resent_header=", "ml_remove_bracket=", "ml_maxmsgsize=", "ml_webpasswd=",
};

/* atoi() with a defined result for numbers beyond 32 bits: the nearest one. */
static int32_t number_of(const char *text)
{
    const long value = strtol(text, nullptr, 10);
    if (value > INT32_MAX) return INT32_MAX;
    if (value < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(value);
}

static void read_line(const char *line, int32_t *values)
{
    for (int i = 0; i < LOCAL_CONF_VALUES; ++i) {
        if (!begins_nocase(line, local_conf_keys[i])) continue;
        values[i] = number_of(line + strlen(local_conf_keys[i]));
        return;
    }
}

void local_conf2(int32_t *values_out)
{
    if (values_out == nullptr) return;
    memset(values_out, 0, LOCAL_CONF_VALUES * sizeof(*values_out));
    FILE *file = fopen(local_conf_path, "re");
    if (file == nullptr) return;
    char line[LOCAL_CONF_LINE];
    while (fgets(line, sizeof(line), file) != nullptr)
        read_line(line, values_out);
    fclose(file);
}
