/* Descriptor numbers that are errno values are never anybody's. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>

#include "host/base/placeholders.h"
#include "host/base/program.h"

static bool is_null_device(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && major(status.st_rdev) == 1 &&
           minor(status.st_rdev) == 3;
}

/* In a process of its own: the numbers are the process's. */
static int in_child(int (*body)())
{
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static int check(bool good, int step)
{
    return good ? 0 : step;
}

TEST(Placeholders, TakeEveryNumberThatIsAnErrno)
{
    EXPECT_EQ(in_child([] {
                  close(0);
                  const auto taken = Placeholders::take();
                  if (!taken) return 1;
                  if (!is_null_device(0)) return 2;
                  for (int number = 3; number <= LAST_PLACEHOLDER; ++number)
                      if (fcntl(number, F_GETFD) < 0) return 3;
                  const Fd next(open("/etc/passwd", O_RDONLY | O_CLOEXEC));
                  return check(next.get() > LAST_PLACEHOLDER, 4);
              }),
              0);
}

TEST(Program, MakesFilesAsTheListsAreAndOutlivesAClosedPipe)
{
    EXPECT_EQ(in_child([] {
                  begin_program();
                  return check(umask(0) == 017 && signal(SIGPIPE, SIG_DFL) == SIG_IGN, 1);
              }),
              0);
}

TEST(Placeholders, TakeBackOnlyTheirExactNumber)
{
    EXPECT_EQ(in_child([] {
                  const auto taken = Placeholders::take();
                  if (!taken) return 1;
                  close(28);
                  close(30);
                  taken->restore();
                  if (!is_null_device(28) || !is_null_device(30)) return 2;
                  close(28);
                  const Fd live(open("/etc/passwd", O_RDONLY | O_CLOEXEC));
                  if (live.get() != 28) return 3;
                  taken->restore();
                  if (is_null_device(28)) return 4;
                  const int highest = fcntl(0, F_DUPFD_CLOEXEC, LAST_PLACEHOLDER + 1);
                  close(highest);
                  taken->restore();
                  const int again = fcntl(0, F_DUPFD_CLOEXEC, LAST_PLACEHOLDER + 1);
                  return check(again == highest, 5); /* nothing leaks above */
              }),
              0);
}

TEST(Placeholders, PassedDescriptorsMoveAboveThem)
{
    EXPECT_EQ(in_child([] {
                  const int passed = open("/etc/passwd", O_RDONLY | O_CLOEXEC);
                  const int moved = moved_above(passed);
                  if (moved <= LAST_PLACEHOLDER || is_null_device(moved)) return 1;
                  return check(fcntl(passed, F_GETFD) < 0, 2);
              }),
              0);
}
