#include "host/libldapuse/directory.h"

#include <mutex>

static std::mutex mutex;
static Directory &chosen = *new Directory; /* never destroyed: threads may ask while we exit */

Directory current_directory()
{
    const std::lock_guard lock(mutex);
    return chosen;
}

void choose_directory(const Directory &directory)
{
    const std::lock_guard lock(mutex);
    chosen = directory;
}
