/* Preloaded into a program under test: the time of the day is the kernel's plus the seconds that
   the test has written into a file (8 bytes, as the machine stores them), which is mapped.  The
   monotonic clock stays as it is. */
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static const int64_t none;
static const volatile int64_t *shift = &none;

__attribute__((constructor)) static void map_shift(void)
{
    const char *file = getenv("SHIFTED_CLOCK");
    const int fd = file != NULL ? open(file, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) return;
    void *mapped = mmap(NULL, sizeof(int64_t), PROT_READ, MAP_SHARED, fd, 0);
    if (mapped != MAP_FAILED) shift = mapped;
    close(fd);
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    const int result = (int)syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        now->tv_sec += *shift;
    return result;
}

time_t time(time_t *out)
{
    struct timespec now = {0, 0};
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != NULL) *out = now.tv_sec;
    return now.tv_sec;
}

int gettimeofday(struct timeval *now, void *zone)
{
    struct timespec precise = {0, 0};
    (void)zone;
    clock_gettime(CLOCK_REALTIME, &precise);
    now->tv_sec = precise.tv_sec;
    now->tv_usec = precise.tv_nsec / 1000;
    return 0;
}
