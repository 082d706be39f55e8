#include "tests/concurrency/visit.h"

#include <stdlib.h>

Visit::Visit(const ModuleCalls &calls, const std::string &box, FILE *nowhere, std::mt19937 *random,
             std::function<void(const std::string &)> complain)
    : calls_(calls), nowhere_(nowhere), random_(random), complain_(std::move(complain)),
      box_(calls.open_archive(box.c_str(), 0))
{
    if (box_ == nullptr) complain_("an archive could not be opened");
}

Visit::~Visit()
{
    if (box_ != nullptr) calls_.close_archive(box_);
}

std::string Visit::printed(const std::function<void()> &work)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *memory = open_memstream(&text, &size);
    calls_.set_output(memory);
    work();
    calls_.set_output(nowhere_);
    fclose(memory);
    const std::string answer(text, size);
    free(text);
    return answer;
}

/* 0 when there is none. */
uint32_t Visit::some_message()
{
    return count() == 0 ? 0 : 1 + static_cast<uint32_t>((*random_)()) % count();
}

void Visit::synchronise()
{
    box_->mode |= MAILBOX_FORCE_CHECK;
    calls_.check_archive(box_);
}

void Visit::check()
{
    for (int times = 0; times < 3; ++times) {
        synchronise();
        for (uint32_t i = 2; i <= count(); ++i)
            if (box_->index[i - 1].uid >= box_->index[i].uid) complain_("an index out of order");
        if (count() > 0 && box_->index[count()].uid >= box_->index[0].uid)
            complain_("a number that has not been given yet");
    }
}

/* A message that was removed meanwhile has no text; any other is the one of its number. */
void Visit::fetch()
{
    const uint32_t sequence = some_message();
    if (sequence == 0) return;
    const uint32_t uid = box_->index[sequence].uid;
    char uid_item[] = "UID", envelope[] = "ENVELOPE", structure[] = "BODYSTRUCTURE";
    char seen[] = "BODY[]", unseen[] = "BODY.PEEK[]";
    char *items[] = {uid_item, envelope, structure, (*random_)() % 4 == 0 ? seen : unseen, nullptr};
    const std::string answer =
        printed([&] { calls_.fetch(box_, static_cast<int>(sequence), items); });

    const std::string beginning =
        "* " + std::to_string(sequence) + " FETCH (UID " + std::to_string(uid) + " ";
    if (!answer.starts_with(beginning) || !answer.ends_with(")\r\n"))
        complain_("no answer to a FETCH: " + answer);
    char number[64];
    snprintf(number, sizeof(number), "\r\nX-Mail-Count: %06u\r\n", uid);
    if (answer.find("\r\nX-Mail-Count: ") != answer.find(number))
        complain_("another message than " + std::to_string(uid) + ": " + answer);
}

void Visit::search()
{
    static const char *const criteria[] = {"SUBJECT Hello", "TEXT xxx",  "UNDELETED",
                                           "NOT SEEN 1:*",  "LARGER 10", "HEADER Message-ID @"};
    const char *wanted = criteria[(*random_)() % (sizeof criteria / sizeof criteria[0])];
    int done = 0;
    const std::string answer = printed([&] { done = calls_.search(box_, wanted, nullptr, 0); });
    if (done != 1) complain_(std::string("a search that is refused: ") + wanted);
    uint32_t last = 0;
    for (size_t at = answer.find("SEARCH ");
         at != std::string::npos && (at = answer.find(' ', at)) != std::string::npos; ++at) {
        const uint32_t number = static_cast<uint32_t>(strtoul(answer.c_str() + at, nullptr, 10));
        if (number <= last || number > count()) complain_("numbers out of order: " + answer);
        last = number;
    }
}

uint32_t Visit::remove()
{
    const uint32_t sequence = some_message();
    if (sequence == 0) return 0;
    const uint32_t uid = box_->index[sequence].uid;
    box_->index[sequence].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
    synchronise();
    calls_.expunge(box_, 1);
    for (uint32_t i = 1; i <= count(); ++i)
        if (box_->index[i].uid == uid) complain_("a message that was expunged is still there");
    return uid;
}
