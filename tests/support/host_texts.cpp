#include "tests/support/host_texts.h"

#include <stdio.h>

#include "ldapuse.h"

static HostTexts *current;

HostTexts::HostTexts()
{
    current = this;
}

HostTexts::~HostTexts()
{
    current = nullptr;
}

static int put_text(const std::string &text, char *buffer)
{
    snprintf(buffer, KYT_TEXT_SIZE, "%s", text.c_str());
    return KYT_FOUND;
}

extern "C" {
int kyt_ml_welcomemsg_search(const char *domain, const char *list, char *buffer4096)
{
    if (current == nullptr) return KYT_NOT_FOUND;
    ++current->welcome_calls;
    current->domain = domain;
    current->list = list;
    if (current->error != 0) return current->error;
    return current->welcome ? put_text(*current->welcome, buffer4096) : int{KYT_NOT_FOUND};
}

int kyt_ml_helpmsg_search(const char *domain, const char *list, int32_t *cursor, char *line4096,
                          int32_t *more)
{
    if (current == nullptr) return KYT_NOT_FOUND;
    ++current->help_calls;
    current->domain = domain;
    current->list = list;
    if (current->error != 0) return current->error;
    const size_t piece = static_cast<size_t>(*cursor);
    if (current->help.empty()) return KYT_NOT_FOUND;
    const size_t last = current->help.size() - 1;
    ++*cursor;
    *more = piece < last || current->endless_help != 0;
    return put_text(current->help[piece < last ? piece : last], line4096);
}
}
