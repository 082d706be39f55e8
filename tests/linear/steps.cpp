#include "tests/linear/steps.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>

#include <numeric>

/* Of the blocks that have a counter of their own (block_counters.h); the linker knows where. */
extern "C" const uint64_t __start_block_counters[] __attribute__((weak));
extern "C" const uint64_t __stop_block_counters[] __attribute__((weak));

static bool counting;
static uint64_t steps; /* all others */

static uint64_t all_steps()
{
    return std::accumulate(__start_block_counters, __stop_block_counters, steps);
}

uint64_t steps_of(const std::function<void()> &work)
{
    const uint64_t former = all_steps();
    counting = true;
    work();
    counting = false;
    return all_steps() - former;
}

static void add(uint64_t more)
{
    if (counting) steps += more;
}

/* Bytes from text through the place where a function stopped; all of it when it found nothing. */
static uint64_t through(const void *text, const void *stop, size_t all)
{
    if (stop == nullptr) return all + 1;
    return static_cast<uint64_t>(static_cast<const char *>(stop) -
                                 static_cast<const char *>(text)) +
           1;
}

/* -- every basic block of the module -- */

extern "C" void __sanitizer_cov_trace_pc()
{
    ++steps;
}

/* -- functions of the C library: "--wrap" sends all calls here -- */

extern "C" {
void *__real_memchr(const void *data, int byte, size_t size);
void *__wrap_memchr(const void *data, int byte, size_t size)
{
    void *found = __real_memchr(data, byte, size);
    add(through(data, found, size));
    return found;
}

/* Both end at the first difference; what they read past it is their own affair. */
static uint64_t common(const char *left, const char *right, size_t size, bool texts)
{
    size_t i = 0;
    while (i < size && left[i] == right[i] && !(texts && left[i] == '\0'))
        ++i;
    return i + 1;
}

int __real_memcmp(const void *left, const void *right, size_t size);
int __wrap_memcmp(const void *left, const void *right, size_t size)
{
    if (counting)
        add(common(static_cast<const char *>(left), static_cast<const char *>(right), size, false));
    return __real_memcmp(left, right, size);
}

void *__real_memcpy(void *to, const void *from, size_t size);
void *__wrap_memcpy(void *to, const void *from, size_t size)
{
    add(size);
    return __real_memcpy(to, from, size);
}

void *__real_memmove(void *to, const void *from, size_t size);
void *__wrap_memmove(void *to, const void *from, size_t size)
{
    add(size);
    return __real_memmove(to, from, size);
}

void *__real_memset(void *to, int byte, size_t size);
void *__wrap_memset(void *to, int byte, size_t size)
{
    add(size);
    return __real_memset(to, byte, size);
}

void *__real_memmem(const void *text, size_t size, const void *wanted, size_t wanted_size);
void *__wrap_memmem(const void *text, size_t size, const void *wanted, size_t wanted_size)
{
    void *found = __real_memmem(text, size, wanted, wanted_size);
    add(through(text, found, size) + wanted_size);
    return found;
}

size_t __real_strlen(const char *text);
size_t __wrap_strlen(const char *text)
{
    const size_t length = __real_strlen(text);
    add(length + 1);
    return length;
}

size_t __real_strnlen(const char *text, size_t size);
size_t __wrap_strnlen(const char *text, size_t size)
{
    const size_t length = __real_strnlen(text, size);
    add(length + 1);
    return length;
}

char *__real_strchr(const char *text, int byte);
char *__wrap_strchr(const char *text, int byte)
{
    char *found = __real_strchr(text, byte);
    if (counting) add(through(text, found, found == nullptr ? __real_strlen(text) : 0));
    return found;
}

char *__real_strrchr(const char *text, int byte);
char *__wrap_strrchr(const char *text, int byte)
{
    if (counting) add(__real_strlen(text) + 1);
    return __real_strrchr(text, byte);
}

char *__real_strstr(const char *text, const char *wanted);
char *__wrap_strstr(const char *text, const char *wanted)
{
    char *found = __real_strstr(text, wanted);
    if (counting)
        add(through(text, found, found == nullptr ? __real_strlen(text) : 0) +
            __real_strlen(wanted));
    return found;
}

char *__real_strpbrk(const char *text, const char *bytes);
char *__wrap_strpbrk(const char *text, const char *bytes)
{
    char *found = __real_strpbrk(text, bytes);
    if (counting) add(through(text, found, found == nullptr ? __real_strlen(text) : 0));
    return found;
}

size_t __real_strspn(const char *text, const char *bytes);
size_t __wrap_strspn(const char *text, const char *bytes)
{
    const size_t length = __real_strspn(text, bytes);
    add(length + 1);
    return length;
}

size_t __real_strcspn(const char *text, const char *bytes);
size_t __wrap_strcspn(const char *text, const char *bytes)
{
    const size_t length = __real_strcspn(text, bytes);
    add(length + 1);
    return length;
}

int __real_strcmp(const char *left, const char *right);
int __wrap_strcmp(const char *left, const char *right)
{
    if (counting) add(common(left, right, SIZE_MAX, true));
    return __real_strcmp(left, right);
}

int __real_strncmp(const char *left, const char *right, size_t size);
int __wrap_strncmp(const char *left, const char *right, size_t size)
{
    if (counting) add(common(left, right, size, true));
    return __real_strncmp(left, right, size);
}

char *__real_strcpy(char *to, const char *from);
char *__wrap_strcpy(char *to, const char *from)
{
    if (counting) add(__real_strlen(from) + 1);
    return __real_strcpy(to, from);
}

char *__real_strncpy(char *to, const char *from, size_t size);
char *__wrap_strncpy(char *to, const char *from, size_t size)
{
    add(size); /* it fills up what is left */
    return __real_strncpy(to, from, size);
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text)
{
    if (counting) add(__real_strlen(text) + 1);
    return __real_strdup(text);
}

long __real_strtol(const char *text, char **end, int base);
long __wrap_strtol(const char *text, char **end, int base)
{
    char *behind;
    const long value = __real_strtol(text, &behind, base);
    add(through(text, behind, 0));
    if (end != nullptr) *end = behind;
    return value;
}

long long __real_strtoll(const char *text, char **end, int base);
long long __wrap_strtoll(const char *text, char **end, int base)
{
    char *behind;
    const long long value = __real_strtoll(text, &behind, base);
    add(through(text, behind, 0));
    if (end != nullptr) *end = behind;
    return value;
}

/* -- files and formats -- */

size_t __real_fwrite(const void *data, size_t size, size_t count, FILE *to);
size_t __wrap_fwrite(const void *data, size_t size, size_t count, FILE *to)
{
    add(size * count);
    return __real_fwrite(data, size, count, to);
}

static ssize_t moved(ssize_t bytes)
{
    add(bytes > 0 ? static_cast<uint64_t>(bytes) : 0);
    return bytes;
}

ssize_t __real_read(int fd, void *data, size_t size);
ssize_t __wrap_read(int fd, void *data, size_t size)
{
    return moved(__real_read(fd, data, size));
}

ssize_t __real_pread64(int fd, void *data, size_t size, off_t offset);
ssize_t __wrap_pread64(int fd, void *data, size_t size, off_t offset)
{
    return moved(__real_pread64(fd, data, size, offset));
}

ssize_t __real_write(int fd, const void *data, size_t size);
ssize_t __wrap_write(int fd, const void *data, size_t size)
{
    return moved(__real_write(fd, data, size));
}

ssize_t __real_pwrite64(int fd, const void *data, size_t size, off_t offset);
ssize_t __wrap_pwrite64(int fd, const void *data, size_t size, off_t offset)
{
    return moved(__real_pwrite64(fd, data, size, offset));
}

/* What would be printed is what is walked over, even where it is cut. */
int __real_vsnprintf(char *to, size_t size, const char *format, va_list arguments);
int __wrap_vsnprintf(char *to, size_t size, const char *format, va_list arguments)
{
    return static_cast<int>(moved(__real_vsnprintf(to, size, format, arguments)));
}

int __wrap_snprintf(char *to, size_t size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = __wrap_vsnprintf(to, size, format, arguments);
    va_end(arguments);
    return length;
}

int __real_vfprintf(FILE *to, const char *format, va_list arguments);
int __wrap_vfprintf(FILE *to, const char *format, va_list arguments)
{
    return static_cast<int>(moved(__real_vfprintf(to, format, arguments)));
}
}
