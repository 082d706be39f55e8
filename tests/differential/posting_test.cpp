/* Random sequences of postings and of what happens to a list between them, through the module and
   in the plain form: the same files, modes and bytes, the same printed text, log lines, mails,
   answers and exit codes.

   Two things may differ and are not provoked here: the journal is collected before it is written,
   so that a full disk is met at another line (the answer is 480 wherever it is met), and what is
   printed of a failed write of collected text is the block's length. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "mlist/mlist.h"
#include "tests/differential/twin_lists.h"

namespace fs = std::filesystem;

class Sequence
{
  public:
    explicit Sequence(unsigned seed) : random_(seed) { change_settings(); }
    void step();
    void compare(const TwinLists::Both &both, const std::string &what);
    TwinLists::Both post();

  private:
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }
    bool one_in(uint32_t count) { return below(count) == 0; }
    template <size_t size> const char *one_of(const char *const (&words)[size])
    {
        return words[below(size)];
    }

    void change_settings();
    void change_access();
    void change_banners();
    void change_recipients();
    void change_digest_status();
    void leave_side_files();
    void flag_messages();
    void expunge();
    void damage_index();
    void put_in_the_way();
    void clear_the_way();
    void choose_host();
    std::string message();
    std::string header();
    std::string body();

    std::mt19937 random_;
    std::vector<std::string> obstacles_;
    TwinLists twins_;
};

/* -- between postings -- */

void Sequence::change_settings()
{
    static const char *const keeps[] = {"0", "1", "3", "3", "1000", "1000", "-2"};
    static const char *const tags[] = {"[%M:%0S]", "[%M:%S]", "", "(%S) "};
    static const char *const visitors[] = {"grant", "grant", "deny"};
    static const char *const reply_edits[] = {"add", "change", "no"};
    static const char *const replies[] = {"", "mylist@example.jp"};
    static const char *const subjects[] = {"edit", "edit", "noedit"};
    static const char *const precedences[] = {"list", "bulk", "junk"};
    std::string init = std::string("journal=") + one_of(keeps) + "\r\nsubjectf=" + one_of(tags) +
                       "\r\nvstrml=" + one_of(visitors) + "\r\nreplyedit=" + one_of(reply_edits) +
                       "\r\nreplyto=" + one_of(replies) + "\r\nsubject=" + one_of(subjects) +
                       "\r\nprecedence=" + one_of(precedences) +
                       "\r\nmaxmsgsize=" + std::to_string(below(4)) + "\r\nmaxsummary=500\r\n";
    const bool missing = one_in(10);
    twins_.change([&](TempList &list) {
        list.put("init", init);
        if (missing) fs::remove(list.control("init"));
    });
    add_resent_header = one_in(4) ? 1 : 0;
    ml_maxmsgsize = one_in(3) ? 1 : 0;
}

void Sequence::change_access()
{
    static const char *const rosters[] = {"", "alice@example.net ON \r\nbob@example.jp OFF\r\n",
                                          "ALICE@EXAMPLE.NET DGT\r\nx\r\n"};
    static const char *const grants[] = {"", "", "carol@example.com\r\n",
                                         "  dave@example.com \t\r\nALICE@example.net"};
    const std::string roster = one_of(rosters), grant = one_of(grants);
    const bool no_roster = one_in(12), no_grant = one_in(12);
    twins_.change([&](TempList &list) {
        list.put("member", roster);
        list.put("grant", grant);
        if (no_roster) fs::remove(list.control("member"));
        if (no_grant) fs::remove(list.control("grant"));
    });
}

void Sequence::change_banners()
{
    static const char *const names[] = {"msg/bnrtop.txt",  "msg/bnrtopj.txt", "msg/bnrbtm.txt",
                                        "msg/bnrbtmj.txt", "msg/denied.txt",  "msg/vstrml.txt"};
    static const char *const texts[] = {"",
                                        "one line\r\n",
                                        "no line end",
                                        "\xa4\xe8\xa4\xa6 \xa4\xb3\xa4\xbd\r\n\r\nlast\n",
                                        "-- \n%M %S\n",
                                        "\x8e\xb1\x8e\xde kana\r\n"};
    const std::string name = one_of(names), text = one_of(texts);
    const bool gone = one_in(3);
    twins_.change([&](TempList &list) {
        if (gone)
            fs::remove(list.control(name));
        else
            list.put(name, text);
    });
}

void Sequence::change_recipients()
{
    static const char *const texts[] = {"alice@example.net\r\n", "",
                                        "alice@example.net\r\nbob@example.jp\r\n"};
    const std::string text = one_of(texts);
    const bool gone = one_in(4);
    twins_.change([&](TempList &list) {
        list.put("active", text);
        if (gone) fs::remove(list.control("active"));
    });
}

void Sequence::change_digest_status()
{
    static const char *const texts[] = {"", "", "0", "5-8", "1,3", "5-8,10-12,15", "7\r\n8"};
    const std::string text = one_of(texts);
    const bool gone = one_in(12);
    twins_.change([&](TempList &list) {
        list.put("dgtstat", text);
        if (gone) fs::remove(list.control("dgtstat"));
    });
}

/* What a delivery that was killed may leave. */
void Sequence::leave_side_files()
{
    static const char *const names[] = {"dgtstat", "member", "active", "grant", "msg/bnrtop.txt"};
    const std::string name = one_of(names);
    const bool committed = one_in(2), in_archive = one_in(2);
    twins_.change([&](TempList &list) {
        if (in_archive) {
            fs::copy_file(list.box("#mix"), list.box("#mix.new"));
            if (committed) fs::copy_file(list.box("#mix"), list.box("#mix.old"));
            return;
        }
        list.put(name + ".new", name == "dgtstat" ? "9" : "new@example.net ON \r\n");
        if (committed) list.put(name + ".old", read_file(list.control(name)));
    });
}

template <class Work> static void with_archive(TempList &list, Work work)
{
    MailboxHandle *box =
        list_mbx_open(list.box().c_str(), MAILBOX_QUIET); /* null where it was damaged */
    if (box == nullptr) return;
    work(box);
    box->mode |= MAILBOX_FORCE_CHECK;
    list_mbx_close(box);
}

void Sequence::flag_messages()
{
    const uint32_t flags = below(128), which = below(1000);
    twins_.change([&](TempList &list) {
        with_archive(list, [&](MailboxHandle *box) {
            const uint32_t count = box->index[0].header_size;
            if (count > 1) box->index[1 + which % (count - 1)].flags = flags | MESSAGE_CHANGED;
        });
    });
}

void Sequence::expunge()
{
    const uint32_t which = below(1000);
    twins_.change([&](TempList &list) {
        with_archive(list, [&](MailboxHandle *box) {
            const uint32_t count = box->index[0].header_size;
            for (uint32_t i = 1; i < count; ++i)
                if ((i + which) % 3 == 0) box->index[i].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
            mlmbx_expunge(box, 0);
        });
    });
}

void Sequence::damage_index()
{
    const uint32_t kind = below(5);
    twins_.change([&](TempList &list) {
        std::string bytes = read_file(list.box("#mix"));
        if (kind == 0)
            bytes.clear();
        else if (kind == 1)
            bytes.resize(15);
        else if (kind == 2)
            bytes += bytes.substr(0, 7); /* a piece of a record counts as none */
        else if (bytes.size() >= 48)
            bytes.replace(16, 4, bytes, 32, 4); /* the same UID twice */
        write_file(list.box("#mix"), bytes);
    });
}

/* Directories where a step wants a file, for one posting. */
void Sequence::put_in_the_way()
{
    uint32_t next = 0;
    const std::string index = read_file(twins_.list.box("#mix"));
    if (index.size() >= 4) index.copy(reinterpret_cast<char *>(&next), 4);
    const std::string journal = twins_.list.control("jnl/");
    const std::string places[] = {journal + "j." + std::to_string(gettid()),
                                  journal + std::to_string(next + 1), "#mix", "#msg"};
    const std::string place = places[below(4)];
    if (place == "#mix" || place == "#msg") {
        twins_.change(
            [&](TempList &list) { fs::rename(list.box(place), list.box(place + ".away")); });
    } else {
        twins_.change([&](TempList &) {
            fs::remove(place);
            fs::create_directory(place);
        });
    }
    obstacles_.push_back(place);
}

void Sequence::clear_the_way()
{
    for (const std::string &place : obstacles_)
        twins_.change([&](TempList &list) {
            if (place.starts_with("#"))
                fs::rename(list.box(place + ".away"), list.box(place));
            else
                fs::remove(place);
        });
    obstacles_.clear();
}

/* -- postings -- */

std::string Sequence::header()
{
    static const char *const from[] = {"alice@example.net",        "Alice <alice@example.net>",
                                       "bob@example.jp (Bob)",     "carol@example.com",
                                       "\"D\" <dave@example.com>", "nobody"};
    static const char *const subjects[] = {"Hello",
                                           "",
                                           "Re: [mylist:00001] Hello",
                                           "[mylist:3] RE: Re: x",
                                           "=?ISO-2022-JP?B?GyRCJUYlOSVIGyhC?=",
                                           "a\r\n b\r\n\tc"};
    static const char *const types[] = {"Content-Type: text/plain; charset=us-ascii\r\n", "",
                                        "Content-Type: text/plain;\r\n\tcharset=iso-2022-jp\r\n",
                                        "Content-Type: text/plain\r\n",
                                        "Content-Type: multipart/mixed; boundary=b\r\n"};
    static const char *const others[] = {"",
                                         "",
                                         "Received: from a\r\n\tby b\r\n",
                                         "Precedence: bulk\r\n",
                                         "Reply-To: a@b\r\nSender: c@d\r\n",
                                         "X-ML-Name: other@example.jp\r\nX-Mail-Count: 4\r\n"};
    std::string text;
    if (!one_in(10)) text += std::string("From: ") + one_of(from) + "\r\n";
    if (!one_in(10)) text += std::string("Subject: ") + one_of(subjects) + "\r\n";
    text += std::string(one_of(types)) + one_of(others);
    if (one_in(25)) text += "X-ML-Name: MyList@example.jp\r\n";
    if (one_in(25)) text += "X-Long: " + std::string(1030, 'x') + "\r\n";
    if (one_in(25)) text += "Return-Path: <a@b>\r\n";
    return text;
}

std::string Sequence::body()
{
    std::string text;
    for (uint32_t lines = below(6); lines > 0; --lines) {
        switch (below(6)) {
        case 0:
            text += "\r\n";
            break;
        case 1:
            text += std::string(below(10000), 'y') + "\r\n";
            break;
        case 2:
            text += ".\r\n \t\r\n";
            break;
        default:
            text += "line " + std::to_string(below(1000)) + "\r\n";
        }
    }
    return one_in(5) ? text + "no line end" : text;
}

std::string Sequence::message()
{
    if (one_in(25)) return header(); /* nothing ends it */
    return header() + "\r\n" + body();
}

void Sequence::choose_host()
{
    static const char *const results[] = {"", "queued as 7", "EOF of it"};
    twins_.host.accept = one_in(10) ? 0 : 1;
    twins_.host.result_to_write = one_of(results);
    twins_.with_message = !one_in(40);
}

TwinLists::Both Sequence::post()
{
    choose_host();
    if (one_in(40)) return twins_.post(message(), {std::string(33, 'a')});
    if (one_in(40)) return twins_.post(message(), {"mylist", "two", "three"});
    return twins_.post(message(), {one_in(5) ? "MyList" : "mylist"});
}

void Sequence::step()
{
    void (Sequence::*const changes[])() = {
        &Sequence::change_settings,   &Sequence::change_settings,
        &Sequence::change_access,     &Sequence::change_banners,
        &Sequence::change_banners,    &Sequence::change_recipients,
        &Sequence::change_recipients, &Sequence::change_digest_status,
        &Sequence::leave_side_files,  &Sequence::flag_messages,
        &Sequence::expunge,           &Sequence::damage_index,
        &Sequence::put_in_the_way,
    };
    clear_the_way();
    if (one_in(2)) (this->*changes[below(std::size(changes))])();
    (void)take_log();
}

void Sequence::compare(const TwinLists::Both &both, const std::string &what)
{
    const Trace &module = both.module, &plain = both.plain;
    ASSERT_EQ(plain.log, module.log) << what;
    ASSERT_EQ(plain.exit_code, module.exit_code) << what;
    ASSERT_EQ(plain.reply, module.reply) << what;
    ASSERT_EQ(plain.result, module.result) << what;
    ASSERT_EQ(plain.printed, module.printed) << what;
    ASSERT_EQ(plain.submitted, module.submitted) << what;
    ASSERT_EQ(plain.control, module.control) << what;
    ASSERT_EQ(plain.archive, module.archive) << what;
}

/* What a sequence must have met to be worth anything. */
struct Met {
    int accepted = 0, refused = 0, later = 0, denied = 0, rebuilt = 0, trimmed = 0, emptied = 0;

    void note(const Trace &trace, size_t messages_before, size_t messages)
    {
        accepted += trace.exit_code == 0;
        refused += trace.exit_code == MLIST_EXIT_REFUSED;
        later += trace.exit_code == MLIST_EXIT_LATER;
        denied += trace.log.find("Distribution Denied Log") != std::string::npos;
        rebuilt += trace.log.find("mbx_rebuild") != std::string::npos;
        trimmed += messages_before > 0 && messages == messages_before;
        emptied += messages_before > 0 && messages == 0;
    }
};

static size_t count_messages(const Trace &trace)
{
    size_t count = 0;
    for (size_t at = 0; (at = trace.archive.find("#msg/", at)) != std::string::npos; ++at)
        ++count;
    return count;
}

TEST(PostingAndItsPlainForm, DoTheSame)
{
    Met met;
    for (unsigned seed = 1; seed <= 8; ++seed) {
        Sequence sequence(seed);
        size_t messages = 0;
        for (int step = 0; step < 150; ++step) {
            sequence.step();
            const TwinLists::Both both = sequence.post();
            sequence.compare(both,
                             "seed " + std::to_string(seed) + " step " + std::to_string(step));
            if (testing::Test::HasFailure()) return;
            const size_t before = messages;
            messages = count_messages(both.module);
            met.note(both.module, before, messages);
        }
    }
    EXPECT_GT(met.accepted, 400);
    EXPECT_GT(met.refused, 50);
    EXPECT_GT(met.later, 50);
    EXPECT_GT(met.denied, 50);
    EXPECT_GT(met.rebuilt, 10);
    EXPECT_GT(met.trimmed, 50);
    EXPECT_GT(met.emptied, 5);
}
