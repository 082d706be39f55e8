/* Random criteria over a generated archive, beside a plain evaluation of what the messages were
   made of. */
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "codec/conv.h"
#include "tests/unit/search/archive.h"

namespace
{
/* What a message was made of; texts in EUC-JP. */
struct Made {
    uint32_t flags = 0, size = 0;
    std::string subject, from, body;
    bool body_is_searched = true;
};

const std::vector<std::string> words = {
    "alpha",
    "Beta",
    "gamma",
    "delta9",
    "\xb2\xf1\xb5\xc4",
    "\xa5\xc6\xa5\xb9\xa5\xc8",
    "\xc6\xfc\xcb\xdc\xb8\xec",
    "\xa4\xb3\xa4\xf3",
};

std::string to_jis(const std::string &euc)
{
    std::string out(euc.size() * 5 + 16, '\0');
    EXPECT_EQ(0, euc2jis(euc.c_str(), out.data(), static_cast<int>(out.size())));
    return out.c_str();
}

std::string encoded_word(const std::string &euc)
{
    const std::string jis = to_jis(euc);
    std::string out(jis.size() * 2 + 16, '\0');
    EXPECT_EQ(0, mlist_base64_encode(jis.c_str(), out.data(), static_cast<int>(out.size())));
    return "=?ISO-2022-JP?B?" + std::string(out.c_str()) + "?=";
}

class Generator
{
  public:
    explicit Generator(unsigned seed) : random_(seed) {}
    unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }
    const std::string &word() { return words[below(static_cast<unsigned>(words.size()))]; }

    Made make(std::string *mail)
    {
        static const uint32_t bits[] = {MESSAGE_SEEN,    MESSAGE_ANSWERED, MESSAGE_FLAGGED,
                                        MESSAGE_DELETED, MESSAGE_DRAFT,    MESSAGE_MDNSENT};
        Made made;
        for (const uint32_t bit : bits)
            if (below(3) == 0) made.flags |= bit;
        made.subject = word() + word();
        made.from = "user" + std::to_string(below(20)) + "@example.jp";
        for (unsigned n = 1 + below(4); n > 0; --n)
            made.body += word();
        *mail = "From: " + made.from + "\r\nSubject: " + encoded_word(made.subject) + "\r\n";
        switch (below(4)) {
        case 0:
            *mail += "Content-Type: text/plain; charset=iso-2022-jp\r\n\r\n" + to_jis(made.body);
            break;
        case 1: /* EUC, broken over two lines */
            *mail += "Content-Type: text/plain; charset=EUC-JP\r\n\r\n" +
                     made.body.substr(0, made.body.size() / 2) + "\r\n" +
                     made.body.substr(made.body.size() / 2);
            break;
        case 2: {
            std::string base64(made.body.size() * 2 + 16, '\0');
            EXPECT_EQ(0, mlist_base64_encode(made.body.c_str(), base64.data(),
                                             static_cast<int>(base64.size())));
            *mail += "Content-Type: text/plain; charset=euc-jp\r\n"
                     "Content-Transfer-Encoding: base64\r\n\r\n" +
                     std::string(base64.c_str());
            break;
        }
        default:
            *mail += "Content-Type: text/plain; charset=utf-8\r\n\r\n" + made.body;
            made.body_is_searched = false;
        }
        *mail += "\r\n";
        made.size = static_cast<uint32_t>(mail->size());
        return made;
    }

  private:
    std::mt19937 random_;
};

using Test = std::function<bool(const Made &, uint32_t sequence)>;
struct Criterion {
    std::string text;
    Test test;
};

bool has(const std::string &text, const std::string &word)
{
    return text.find(word) != std::string::npos;
}

Criterion flag_key(Generator &g)
{
    static const struct {
        const char *name;
        uint32_t bit;
    } keys[] = {{"SEEN", 1}, {"ANSWERED", 2}, {"FLAGGED", 4}, {"DELETED", 8}, {"DRAFT", 16}};
    const auto &key = keys[g.below(5)];
    const bool negated = g.below(2) == 0;
    return {std::string(negated ? "UN" : "") + key.name,
            [=](const Made &m, uint32_t) { return ((m.flags & key.bit) != 0) != negated; }};
}

Criterion set_key(Generator &g, uint32_t count)
{
    uint32_t low = 1 + g.below(count), high = 1 + g.below(count);
    if (low > high) std::swap(low, high);
    const bool uid = g.below(2) == 0; /* the generated archive has UIDs equal to numbers */
    return {(uid ? "UID " : "") + std::to_string(low) + ":" + std::to_string(high),
            [=](const Made &, uint32_t s) { return s >= low && s <= high; }};
}

Criterion text_key(Generator &g)
{
    const std::string word = g.word();
    switch (g.below(4)) {
    case 0:
        return {"SUBJECT " + word, [=](const Made &m, uint32_t) { return has(m.subject, word); }};
    case 1:
        return {"BODY " + word,
                [=](const Made &m, uint32_t) { return m.body_is_searched && has(m.body, word); }};
    case 2:
        return {"TEXT " + word, [=](const Made &m, uint32_t) {
                    return has(m.subject, word) || (m.body_is_searched && has(m.body, word));
                }};
    default:
        const std::string user = "user" + std::to_string(g.below(20)) + "@";
        return {"FROM " + user, [=](const Made &m, uint32_t) { return has(m.from, user); }};
    }
}

Criterion size_key(Generator &g)
{
    const uint32_t size = 80 + g.below(200);
    if (g.below(2) == 0)
        return {"LARGER " + std::to_string(size),
                [=](const Made &m, uint32_t) { return m.size > size; }};
    return {"SMALLER " + std::to_string(size),
            [=](const Made &m, uint32_t) { return m.size < size; }};
}

Criterion criterion(Generator &g, uint32_t count, int depth)
{
    const unsigned kind = g.below(depth > 0 ? 7 : 4);
    if (kind == 0) return flag_key(g);
    if (kind == 1) return set_key(g, count);
    if (kind == 2) return text_key(g);
    if (kind == 3) return size_key(g);
    const Criterion left = criterion(g, count, depth - 1), right = criterion(g, count, depth - 1);
    if (kind == 4)
        return {"OR (" + left.text + ") (" + right.text + ")",
                [=](const Made &m, uint32_t s) { return left.test(m, s) || right.test(m, s); }};
    if (kind == 5)
        return {"NOT (" + left.text + ")",
                [=](const Made &m, uint32_t s) { return !left.test(m, s); }};
    return {"(" + left.text + " " + right.text + ")",
            [=](const Made &m, uint32_t s) { return left.test(m, s) && right.test(m, s); }};
}
} // namespace

TEST(SearchRandom, AgreesWithAPlainEvaluation)
{
    constexpr uint32_t COUNT = 2000;
    Generator g(20261115);
    SearchArchive box;
    std::vector<Made> made(1);
    for (uint32_t s = 1; s <= COUNT; ++s) {
        std::string mail;
        made.push_back(g.make(&mail));
        write_file(box.message_file(s), mail);
    }
    ASSERT_EQ(0, list_mbx_rebuild(box.path().c_str()));
    MailboxHandle *handle = box.open();
    ASSERT_NE(nullptr, handle);
    for (uint32_t s = 1; s <= COUNT; ++s)
        handle->index[s].flags = made[s].flags;

    for (int round = 0; round < 150; ++round) {
        const Criterion c = criterion(g, COUNT, 3);
        std::string wanted;
        for (uint32_t s = 1; s <= COUNT; ++s)
            if (c.test(made[s], s)) wanted += " " + std::to_string(s);
        if (!wanted.empty()) wanted = "* SEARCH" + wanted + "\r\n";
        ASSERT_EQ(wanted, box.search(c.text, "euc-jp")) << c.text;
    }
}
