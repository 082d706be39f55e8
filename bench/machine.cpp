#include "bench/machine.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

std::string directory_of(int place)
{
    const char *disk = getenv("MLIST_BENCH_DISK");
    return place == MEMORY ? "/dev/shm" : disk != nullptr ? disk : "/tmp";
}

double seconds_now()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

static double seconds_of(const timeval &t)
{
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

double processor_seconds()
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
}

double user_seconds()
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return seconds_of(usage.ru_utime);
}

long peak_kilobytes()
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

void make_durable_file(const std::string &directory, int directory_fd)
{
    static const std::string block(4096, 'x');
    const std::string name = directory + "/durable";
    const int fd = open((name + ".new").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || write(fd, block.data(), block.size()) != 4096 || fsync(fd) != 0) exit(1);
    close(fd);
    if (rename((name + ".new").c_str(), name.c_str()) != 0 || fsync(directory_fd) != 0) exit(1);
}

void sync_file_system(const std::string &directory)
{
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    (void)syncfs(fd); /* a benchmark that pays for it all the same is only less exact */
    close(fd);
}
