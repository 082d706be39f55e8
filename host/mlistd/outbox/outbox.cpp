#include "host/mlistd/outbox/outbox.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/base/text.h"
#include "host/mlistd/outbound/lines.h"
#include "host/mlistd/spool/calls.h"

static constexpr mode_t DIRECTORY_MODE = 0770;
static constexpr mode_t FILE_MODE = 0660;

/* Up to here each mailbox is synced on its own; beyond, the file system at one stroke. */
static constexpr size_t FEW_MAILBOXES = 16;

struct Outbox::Delivery {
    const OutboundMessage &message;
    const std::string &sender;
    std::string stage;                       /* path of the copy that is linked */
    std::string file_name;                   /* in each new/ */
    std::vector<std::string> mailboxes = {}; /* that have a link now */
};

static bool plain_in_path(char c)
{
    return is_alnum(c) || std::string_view("@.-_+=").find(c) != std::string_view::npos;
}

static std::string fingerprint(std::string_view text)
{
    uint64_t hash = 0xcbf29ce484222325; /* FNV-1a, 64 bits */
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (int shift = 60; shift >= 0; shift -= 4)
        out += digits[hash >> shift & 15];
    return out;
}

std::string mailbox_name(std::string_view address)
{
    constexpr size_t LONGEST_NAME = 255;
    static const char digits[] = "0123456789ABCDEF";
    std::string name;
    for (const char original : address) {
        const char c = lower(original);
        const unsigned char byte = static_cast<unsigned char>(c);
        if (plain_in_path(c) && !(c == '.' && name.empty()))
            name += c;
        else
            name += {'%', digits[byte >> 4], digits[byte & 15]};
    }
    if (name.empty()) return "%";
    if (name.size() <= LONGEST_NAME) return name;
    const std::string end = "%-" + fingerprint(name); /* no escape looks like this */
    return name.substr(0, LONGEST_NAME - end.size()) + end;
}

static std::string clean_hostname(std::string name)
{
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !is_alnum(c) && c != '.'; }, '-');
    return name.empty() ? "localhost" : name;
}

Outbox::Outbox(std::string root, std::string hostname)
    : root_(std::move(root)), hostname_(clean_hostname(std::move(hostname)))
{
}

/* Writes the copy that is linked, in the form in which Maildirs hold mail. */
Result<void> Outbox::write_stage(Delivery &delivery) const
{
    /* a left one may have links in mailboxes already: removed, never written to */
    if (queue_calls->unlink(delivery.stage.c_str()) < 0 && errno != ENOENT)
        return system_error(delivery.stage);
    const Fd file(queue_calls->create(delivery.stage.c_str(), FILE_MODE));
    if (!file) return system_error(delivery.stage);

    UnixLines lines;
    std::string out = "Return-Path: <" + delivery.sender + ">\n";
    bool written = true;
    const auto write_piece = [&](std::string_view piece) {
        lines.feed(piece, out);
        written = queue_write(file.get(), out) == 0;
        out.clear();
        return written;
    };
    if (visit_message(delivery.message, write_piece) < 0) return system_error("queued message");
    lines.finish(out);
    if (!written || queue_write(file.get(), out) < 0 || queue_calls->fsync(file.get()) < 0)
        return system_error(delivery.stage);
    return {};
}

/* Without syncing: sync_mailboxes() does. */
Result<void> Outbox::make_mailbox(const std::string &name) const
{
    const std::string path = root_ + "/" + name;
    for (const char *part : {"", "/tmp", "/new", "/cur"})
        if (queue_calls->mkdir((path + part).c_str(), DIRECTORY_MODE) < 0 && errno != EEXIST)
            return system_error(path + part);
    return {};
}

Result<void> Outbox::link_to(Delivery &delivery, const std::string &mailbox) const
{
    const std::string path = root_ + "/" + mailbox + "/new/" + delivery.file_name;
    for (int attempt = 0; attempt < 3; attempt++) {
        /* there already: from a try before this one, or the same mailbox named twice */
        if (queue_calls->link(delivery.stage.c_str(), path.c_str()) == 0 || errno == EEXIST)
            return {};
        Result<void> remedy;
        if (errno == ENOENT)
            remedy = make_mailbox(mailbox);
        else if (errno == EMLINK)
            remedy = write_stage(delivery);
        else
            return system_error(path);
        if (!remedy) return remedy;
    }
    return system_error(path);
}

Result<void> Outbox::sync_mailboxes(const Delivery &delivery) const
{
    if (delivery.mailboxes.size() > FEW_MAILBOXES) {
        const Fd root(::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!root || queue_calls->syncfs(root.get()) < 0) return system_error(root_);
        return {};
    }
    for (const std::string &mailbox : delivery.mailboxes)
        for (const std::string &path :
             {root_ + "/" + mailbox + "/new", root_ + "/" + mailbox, root_})
            if (sync_directory(path) < 0) return system_error(path);
    return {};
}

static void answer_all(std::span<Answer> answers, const Error &error)
{
    for (Answer &answer : answers)
        answer = {Answer::Kind::later, error.text};
}

bool Outbox::deliver(const OutboundMessage &message, const std::string &sender,
                     std::span<const std::string_view> recipients, std::span<Answer> answers)
{
    const std::string id(message.id);
    Delivery delivery{message, sender, root_ + "/.stage/" + id,
                      std::to_string(message.created) + "." + id + "." + hostname_};
    if (make_directory(root_, DIRECTORY_MODE) < 0 ||
        make_directory(root_ + "/.stage", DIRECTORY_MODE) < 0) {
        answer_all(answers, system_error(root_));
        return false;
    }
    if (const auto result = write_stage(delivery); !result) {
        answer_all(answers, result.error());
        (void)queue_calls->unlink(delivery.stage.c_str()); /* the next try does it otherwise */
        return false;
    }
    for (size_t i = 0; i < recipients.size(); i++) {
        const std::string mailbox = mailbox_name(recipients[i]);
        const auto result = link_to(delivery, mailbox);
        if (!result)
            answers[i] = {Answer::Kind::later, result.error().text};
        else {
            answers[i] = {Answer::Kind::done, ""};
            delivery.mailboxes.push_back(mailbox);
        }
    }
    const auto synced = sync_mailboxes(delivery);
    if (!synced) answer_all(answers, synced.error());
    (void)queue_calls->unlink(delivery.stage.c_str()); /* the next try does it otherwise */
    return static_cast<bool>(synced);
}
