#include "bench/generate_archive.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "codec/conv.h"
#include "mlist/archive.h"

/* -- mails -- */

/* The same numbers on every machine (splitmix64). */
uint32_t MailGenerator::below(uint32_t n)
{
    uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return static_cast<uint32_t>((z ^ (z >> 31)) % n);
}

std::string MailGenerator::words(uint32_t count)
{
    static const char *const some[] = {"list",     "meeting", "about",  "version",
                                       "tomorrow", "thanks",  "please", "answer",
                                       "the",      "minutes", "draft",  "of"};
    std::string text;
    for (; count > 0; --count)
        text += std::string(text.empty() ? "" : " ") + some[below(12)];
    return text;
}

/* So many characters, escapes included. */
std::string MailGenerator::kanji(uint32_t count)
{
    std::string text = "\x1b$B";
    for (; count > 0; --count) {
        const bool kana = below(2) == 0;
        text += static_cast<char>(kana ? 0x24 : 0x30 + below(0x1E));
        text += static_cast<char>(0x21 + below(kana ? 0x53 : 0x5E));
    }
    return text + "\x1b(B";
}

static std::string base64(const std::string &text)
{
    std::string out(text.size() * 2 + 16, '\0');
    if (mlist_base64_encode(text.c_str(), out.data(), static_cast<int>(out.size())) < 0) abort();
    return out.c_str();
}

std::string MailGenerator::subject(bool japanese)
{
    const std::string number = "[list:" + std::to_string(below(100000)) + "] ";
    if (!japanese) return number + words(5);
    return number + "=?ISO-2022-JP?B?" + base64(kanji(4 + below(8))) + "?=";
}

std::string MailGenerator::text(bool japanese)
{
    std::string body;
    for (uint32_t lines = 5 + below(50); lines > 0; --lines)
        body += (japanese ? kanji(10 + below(25)) : words(12)) + "\r\n";
    return body;
}

std::string MailGenerator::parts()
{
    std::string encoded;
    for (uint32_t lines = 5 + below(20); lines > 0; --lines)
        encoded += base64(kanji(20)) + "\r\n";
    return "--=_b0\r\nContent-Type: text/plain; charset=ISO-2022-JP\r\n\r\n" + text(true) +
           "--=_b0\r\nContent-Type: text/plain; charset=us-ascii; name=\"notes.txt\"\r\n"
           "Content-Disposition: attachment; filename=\"notes.txt\"\r\n\r\n" +
           text(false) +
           "--=_b0\r\nContent-Type: application/octet-stream\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\n" +
           encoded + "--=_b0--\r\n";
}

std::string MailGenerator::make()
{
    const bool japanese = below(2) == 0, multipart = below(10) == 0;
    const std::string from = "user" + std::to_string(below(500));
    char date[64];
    snprintf(date, sizeof(date), "Mon, %u Nov 2026 %02u:%02u:%02u +0900", 1 + below(28), below(24),
             below(60), below(60));
    const std::string header =
        "Received: from mail.example.jp (mail.example.jp [192.0.2.1])\r\n\tby list.example.jp; " +
        std::string(date) + "\r\nFrom: \"" + from + "\" <" + from + "@example.jp>\r\n" +
        "To: list@example.jp\r\nSubject: " + subject(japanese) + "\r\nDate: " + date +
        "\r\nMessage-ID: <" + std::to_string(below(UINT32_MAX)) + "@example.jp>\r\n" +
        "MIME-Version: 1.0\r\n";
    if (multipart)
        return header + "Content-Type: multipart/mixed; boundary=\"=_b0\"\r\n\r\n" + parts();
    const std::string charset = japanese ? "ISO-2022-JP" : "us-ascii";
    return header + "Content-Type: text/plain; charset=" + charset +
           "\r\nContent-Transfer-Encoding: 7bit\r\n\r\n" + text(japanese);
}

/* -- the archive -- */

std::string GeneratedArchive::message_file(uint32_t uid) const
{
    return path() + "/#msg/" + std::to_string(uid);
}

static void give_up(const char *what)
{
    perror(what);
    exit(1);
}

GeneratedArchive::GeneratedArchive(uint32_t messages, uint64_t seed)
{
    directory_ = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    directory_ += "/bench-archive-XXXXXX";
    if (mkdtemp(directory_.data()) == nullptr) give_up("mkdtemp");
    if (mlmbx_create(path().c_str()) != 1) give_up("mlmbx_create");
    MailGenerator generator(seed);
    for (uint32_t uid = 1; uid <= messages; ++uid) {
        const std::string mail = generator.make();
        std::ofstream out(message_file(uid), std::ios::binary);
        out << mail;
        if (!out.flush()) give_up("write");
        sizes_.push_back(static_cast<uint32_t>(mail.size()));
    }
    if (list_mbx_rebuild(path().c_str()) != 0) give_up("list_mbx_rebuild");
}

GeneratedArchive::~GeneratedArchive()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}
