/* libldapuse.so: the C face.  No exception leaves it. */
#include "ldapuse.h"

#include <errno.h>
#include <limits.h>
#include <string.h>

#include "host/libldapuse/directory.h"
#include "host/libldapuse/text.h"

#define LDAPUSE_EXPORT extern "C" __attribute__((visibility("default")))

/* A help line at a time, so short that three times its length, the most that its conversion to
   ISO-2022-JP can need, still fits the caller's buffer. */
static constexpr size_t LONGEST_HELP_LINE = KYT_TEXT_SIZE / 3 - 5;

/* Of the path of the directory: what stands behind it must fit a path too. */
static constexpr size_t LONGEST_DIRECTORY = PATH_MAX - 1024;

template <typename Function> static int guarded(Function function)
{
    const int saved = errno;
    int result = KYT_ERROR;
    try {
        result = function();
    } catch (...) {
        /* no memory, for one */
    }
    errno = saved;
    return result;
}

LDAPUSE_EXPORT int kyt_conf_set_directory(const char *directory)
{
    if (directory == nullptr || directory[0] == '\0') {
        choose_directory({});
        return 0;
    }
    if (strlen(directory) > LONGEST_DIRECTORY) {
        errno = ENAMETOOLONG;
        return -1;
    }
    choose_directory({&files_backend, directory});
    return 0;
}

LDAPUSE_EXPORT int kyt_conf_init(int)
{
    return guarded([] {
        const Directory directory = current_directory();
        ServiceConf conf;
        if (directory.backend == nullptr) return static_cast<int>(KYT_FOUND);
        const int result = directory.backend->services(directory.place, conf);
        return result == KYT_NOT_FOUND ? KYT_FOUND : result;
    });
}

static void give(int32_t *output, const std::optional<int32_t> &value)
{
    if (output != nullptr && value) *output = *value;
}

static void give_text(char *output, const std::optional<std::string> &text)
{
    if (output == nullptr || !text) return;
    const size_t length = strnlen(text->c_str(), KYT_SERVICE_TEXT_SIZE - 1);
    memcpy(output, text->c_str(), length);
    output[length] = '\0';
}

LDAPUSE_EXPORT int kyt_smtp_servicesconf_search(int32_t *n1, int32_t *n2, int32_t *n3,
                                                char *text264, int32_t *n4, int32_t *n5,
                                                int32_t *n6, int32_t *n7, int32_t *n8, int32_t *n9,
                                                int32_t *log_level)
{
    return guarded([&] {
        const Directory directory = current_directory();
        if (directory.backend == nullptr) return static_cast<int>(KYT_NOT_FOUND);
        ServiceConf conf;
        const int result = directory.backend->services(directory.place, conf);
        if (result != KYT_FOUND) return result;
        int32_t *const outputs[] = {n1, n2, n3, n4, n5, n6, n7, n8, n9};
        for (size_t i = 0; i < conf.numbers.size(); i++)
            give(outputs[i], conf.numbers[i]);
        give_text(text264, conf.text);
        give(log_level, conf.log_level);
        return static_cast<int>(KYT_FOUND);
    });
}

/* Asks the directory, if there is one. */
static int look_up(TextKind kind, const char *domain, const char *list, int64_t offset, size_t size,
                   std::string &text_out, bool &end_out)
{
    const Directory directory = current_directory();
    if (directory.backend == nullptr) return KYT_NOT_FOUND;
    return directory.backend->text(directory.place, kind, domain, list, offset, size, text_out,
                                   end_out);
}

LDAPUSE_EXPORT int kyt_ml_welcomemsg_search(const char *domain, const char *list, char *buffer4096)
{
    if (domain == nullptr || list == nullptr || buffer4096 == nullptr) return KYT_ERROR;
    return guarded([&] {
        std::string text;
        bool end;
        const int result = look_up(TextKind::welcome, domain, list, 0, KYT_TEXT_SIZE, text, end);
        if (result != KYT_FOUND) return result;
        text = mail_text(text);
        size_t length = whole_characters(text, KYT_TEXT_SIZE - 1);
        if (length < text.size() && text[length - 1] == '\r') length--;
        memcpy(buffer4096, text.data(), length);
        buffer4096[length] = '\0';
        return static_cast<int>(KYT_FOUND);
    });
}

LDAPUSE_EXPORT int kyt_ml_helpmsg_search(const char *domain, const char *list, int32_t *cursor,
                                         char *line4096, int32_t *more)
{
    if (domain == nullptr || list == nullptr || cursor == nullptr || line4096 == nullptr ||
        more == nullptr || *cursor < 0)
        return KYT_ERROR;
    return guarded([&] {
        std::string text;
        bool end;
        /* a line end and the rest of a character show whether the limit cuts */
        const int result =
            look_up(TextKind::help, domain, list, *cursor, LONGEST_HELP_LINE + 4, text, end);
        if (result != KYT_FOUND) return result;
        if (text.empty()) return static_cast<int>(KYT_NOT_FOUND);
        size_t used;
        const std::string line = first_line(text, LONGEST_HELP_LINE, used);
        if (INT32_MAX - *cursor < static_cast<int64_t>(used)) return static_cast<int>(KYT_ERROR);
        memcpy(line4096, line.c_str(), line.size() + 1);
        *cursor += static_cast<int32_t>(used);
        *more = end && used == text.size() ? 0 : 1;
        return static_cast<int>(KYT_FOUND);
    });
}
