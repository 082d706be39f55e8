/* Building a Delivery request and running the module on it. */
#include <cstring>

#include "host/mlistd/modhost/delivery.h"

static thread_local CurrentDelivery *thread_delivery;

CurrentDelivery *current_delivery()
{
    return thread_delivery;
}

void *allocate_operation(size_t size)
{
    return thread_delivery != nullptr ? thread_delivery->arena.allocate(size) : nullptr;
}

/* Outside of a delivery there is nothing left to release: its end freed it. */
void release_operation(void *memory)
{
    if (thread_delivery != nullptr) thread_delivery->arena.release(memory);
}

char *keep_text_operation(const char *text)
{
    const size_t size = strlen(text) + 1;
    char *copy = static_cast<char *>(allocate_operation(size));
    if (copy != nullptr) memcpy(copy, text, size);
    return copy;
}

ModuleAnswer run_module(const ModuleHost &host, const ListAddress &list, const std::string &file)
{
    CurrentDelivery delivery{host, list, Arena()};
    std::string name = list.list;
    std::string control = "/c";
    char *arguments[] = {nullptr, name.data(), control.data(), nullptr};
    char reply_text[MLIST_REPLY_TEXT_SIZE] = "";
    char result_text[MLIST_RESULT_TEXT_SIZE] = "";

    DeliveryRequest request{};
    request.submit = submit_operation;
    request.message_file = file.c_str();
    request.argument_count = list.role == Role::control ? 2 : 1;
    request.argument_vector = arguments;
    request.domain = list.domain.c_str();
    request.reply_text = reply_text;
    request.result_text = result_text;
    request.allocate = allocate_operation;
    request.release = release_operation;
    request.keep_text = keep_text_operation;

    host.module.set_output(discarding_stream());
    thread_delivery = &delivery;
    const int exit_code = host.module.main(&request);
    thread_delivery = nullptr;
    host.placeholders.restore();
    return {exit_code, std::string(reply_text, strnlen(reply_text, sizeof(reply_text))),
            std::string(result_text, strnlen(result_text, sizeof(result_text)))};
}
