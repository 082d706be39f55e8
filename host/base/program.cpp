#include "host/base/program.h"

#include <csignal>
#include <sys/stat.h>

static constexpr mode_t LIST_FILE_MASK = 017;

void begin_program()
{
    umask(LIST_FILE_MASK);
    signal(SIGPIPE, SIG_IGN);
}
