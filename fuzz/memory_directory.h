/* Where fuzzers put their files: where TMPDIR says, else in memory where the machine has a place
   for that. */
#ifndef FUZZ_MEMORY_DIRECTORY_H
#define FUZZ_MEMORY_DIRECTORY_H

#include <stdlib.h>
#include <unistd.h>

#include <string>

inline std::string memory_directory()
{
    const char *chosen = getenv("TMPDIR");
    if (chosen != nullptr && chosen[0] != '\0') return chosen;
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

#endif
