/* The one place that logs a format out of a table. */
#include "store/fail_text.h"

#include "module/unix_sv.h"

int log_failure(const FailText &fail, const char *list, const char *path, const char *second_path)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    (void)trace_sys(&g_logh, fail.level, fail.number, fail.text, list, path, second_path);
#pragma GCC diagnostic pop
    return -1;
}
