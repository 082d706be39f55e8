#include "tests/fault/world.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "mlist/admin.h"
#include "module/module_vars.h"
#include "store/file.h"
#include "tests/pipeline/pipeline.h"
#include "tests/support/without_sync.h"

std::string temporary_root()
{
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    return std::filesystem::temp_directory_path().string();
}

StillMachine::StillMachine() : former_(os), calls_(*os)
{
    static constexpr time_t now = 1794700800;
    calls_.fsync = [](int) { return 0; };
    calls_.time = [](time_t *out) {
        if (out != nullptr) *out = now;
        return now;
    };
    calls_.clock_gettime = [](clockid_t, struct timespec *out) {
        *out = {now, 0};
        return 0;
    };
    os = &calls_;
}

/* -- postings -- */

static std::string body_of(int posting)
{
    const std::string n = std::to_string(posting);
    return "This is posting " + n + ".\r\n" + std::string(20 + posting % 7, 'x') + "\r\nend " + n +
           "\r\n";
}

static std::string mail_of(int posting, const std::string &sender)
{
    const std::string n = std::to_string(posting);
    return "From: " + sender + "\r\nSubject: number " + n + "\r\nMessage-ID: <m" + n +
           "@example.net>\r\n\r\n" + body_of(posting);
}

/* The posting that a text was made of, 0 for none. */
static int posting_in(const std::string &text)
{
    const size_t at = text.find("This is posting ");
    return at == std::string::npos ? 0 : atoi(text.c_str() + at + strlen("This is posting "));
}

static uint32_t number_in(const std::string &text)
{
    const size_t at = text.find("X-Mail-Count: ");
    if (at == std::string::npos) return 0;
    return static_cast<uint32_t>(
        strtoul(text.c_str() + at + strlen("X-Mail-Count: "), nullptr, 10));
}

std::string World::expected_text(int posting, uint32_t number) const
{
    char header[512];
    snprintf(header, sizeof(header),
             "From: alice@example.net\r\nMessage-ID: <m%d@example.net>\r\n"
             "X-ML-Name: mylist@example.jp\r\nX-Mail-Count: %06u\r\nPrecedence: list\r\n"
             "Reply-To: mylist@example.jp\r\nSubject: [mylist:%05u] number %d\r\n\r\n",
             posting, number, number, posting);
    return header + top_banner_ + body_of(posting) + bottom_banner_;
}

/* -- the list -- */

/* After a failed sync the module closes the descriptor that has the error's number: a host keeps
   something worthless on each of them. */
static void occupy_low_descriptors()
{
    const int low = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int high = fcntl(low, F_DUPFD_CLOEXEC, 134);
    close(low);
    for (int number = 3; number < 134; ++number)
        if (fcntl(number, F_GETFD) < 0) (void)fcntl(high, F_DUPFD_CLOEXEC, number);
    close(high);
}

/* The numbers of "5-8,10"; an empty set and a complaint for anything else. */
static std::set<uint32_t> numbers_in(const std::string &line, Complaints *found)
{
    std::set<uint32_t> numbers;
    const char *at = line.c_str();
    while (*at != '\0') {
        char *end;
        const unsigned long first = strtoul(at, &end, 10);
        unsigned long last = first;
        if (*end == '-') last = strtoul(end + 1, &end, 10);
        if (first == 0 || last < first || last > 1000 || (*end != ',' && *end != '\0')) {
            found->insert("the digest status is damaged");
            return {};
        }
        for (unsigned long number = first; number <= last; ++number)
            numbers.insert(static_cast<uint32_t>(number));
        at = *end == ',' ? end + 1 : end;
    }
    return numbers;
}

static int32_t keep_of(const std::vector<std::string> &settings)
{
    for (const std::string &line : settings)
        if (line.starts_with("journal=")) return atoi(line.c_str() + strlen("journal="));
    return 1000;
}

World::World(const std::vector<std::string> &settings, bool banners)
{
    const WithoutSync quick;
    default_settings(&g_mlit);
    add_resent_header = force_remove_bracket = ml_maxmsgsize = ml_webpasswd = 0;
    list.put("init", init_with(settings));
    list.put("member", "alice@example.net ON \r\nbob@example.jp OFF\r\ndora@example.jp DGT\r\n");
    list.put("active", "alice@example.net\r\n");
    list.put("digest", "dora@example.jp\r\n");
    list.put("confirm", "erin@example.com 9999/00/01:00:00 EEEEEEEEEEEEEEEE\r\n"
                        "bob@example.jp 9999/00/01:00:00 BBBBBBBBBBBBBBBB\r\n"
                        "x@example.com 0001/00/01:00:00 XXXXXXXXXXXXXXXX\r\n");
    if (banners) {
        list.put("msg/bnrtop.txt", top_banner_ = "top\r\n");
        list.put("msg/bnrbtm.txt", bottom_banner_ = "bottom\r\n");
        top_banner_ += "\r\n";
        bottom_banner_ += "\r\n";
    }
    EXPECT_EQ(1, mlmbx_create(box().c_str()));
    /* Of long ago: an index that is made anew shows, also within this second. */
    const IndexRecord header = {1, 1794701640, 1, 0};
    write_file(box() + "/#mix", std::string(reinterpret_cast<const char *>(&header), 16));
    host.submitted = [this](const Submission &submission) { note_submission(submission); };
    for (int posting = 1; posting <= 3; ++posting)
        EXPECT_EQ(0, post(posting).exit) << host.reply();
    keep_ = keep_of(settings);
    validity_ = header.flags;
    (void)take_log();
    (void)out.take();
}

void leave_half_committed(World &world, const char *name, const std::string &next)
{
    const std::string former = world.list.get(name);
    world.list.put(std::string(name) + ".old", former);
    world.list.put(std::string(name) + ".new", next);
    world.list.put(name, next.substr(0, next.size() / 2));
}

void leave_half_an_index(World &world)
{
    const std::string name = world.box() + "/#mix", index = read_file(name);
    write_file(name + ".old", index);
    write_file(name + ".new", index);
    write_file(name, index.substr(0, 40));
}

void World::note_submission(const Submission &submission)
{
    if (is_dead && is_dead()) return;
    Complaints damage; /* comes up again when all is looked at */
    const bool is_posting = submission.recipient_file.starts_with("/");
    const bool is_digest = submission.has_recipient_file && !is_posting;
    if (is_posting)
        promises.sent.emplace(number_in(submission.content), posting_in(submission.content));
    if (submission.has_recipients) promises.excused.insert(posting_in(submission.content));
    if (is_digest) promises.digested.merge(numbers_in(list.get("dgtstat"), &damage));
    if (on_submit) on_submit();
}

Outcome World::deliver(const std::string &text, const std::vector<std::string> &arguments)
{
    occupy_low_descriptors();
    const std::string file = outside / "mail";
    write_file(file, text);
    const int exit = host.deliver(file, "example.jp", arguments);
    (void)take_log();
    (void)out.take();
    return {exit, host.reply()};
}

Outcome World::post(int posting)
{
    return post_as("alice@example.net", posting);
}

Outcome World::post_as(const std::string &sender, int posting)
{
    Outcome outcome = deliver(mail_of(posting, sender), {"mylist"});
    if (outcome.exit != 0 || (is_dead && is_dead())) return outcome;
    promises.acknowledged.insert(posting);
    if (!list.get("active").empty()) return outcome;
    promises.unheard.insert(posting);
    promises.excused.insert(posting);
    return outcome;
}

Outcome World::command(const std::string &sender, const std::string &line)
{
    return deliver("From: " + sender + "\r\nMessage-ID: <c@example.net>\r\n\r\n" + line + "\r\n",
                   {"mylist", "/c"});
}

void World::start_check()
{
    ListSession *session = mlist_session_open("mylist", "example.jp");
    ASSERT_NE(nullptr, session);
    for (const char *name :
         {"init", "member", "active", "digest", "grant", "subscribe", "confirm", "dgtstat"})
        EXPECT_EQ(0, f_recover(list.control(name).c_str())) << name;
    EXPECT_LE(0, mlist_derive(session, "active"));
    EXPECT_LE(0, mlist_derive(session, "digest"));
    mlist_session_close(session);
}

/* -- what was promised -- */

static std::vector<IndexRecord> index_of(const std::string &box)
{
    const std::string bytes = read_file(box + "/#mix");
    std::vector<IndexRecord> records(bytes.size() / sizeof(IndexRecord));
    if (!records.empty())
        memcpy(static_cast<void *>(records.data()), bytes.data(), records.size() * 16);
    return records;
}

/* The numbers and postings that are archived; what is wrong with them goes to the complaints. */
static std::set<std::pair<uint32_t, int>> archived_postings(const World &world, Complaints *found)
{
    std::set<std::pair<uint32_t, int>> archived;
    const std::vector<IndexRecord> records = index_of(world.box());
    for (size_t i = 1; i < records.size(); ++i) {
        const std::string path = world.box() + "/#msg/" + std::to_string(records[i].uid);
        const std::string text = read_file(path);
        const int posting = posting_in(text);
        if (!exists(path))
            found->insert("the index names a message that is not there");
        else if (text != world.expected_text(posting, records[i].uid))
            found->insert("an archived message is damaged");
        else if (records[i].size != text.size())
            found->insert("the index has a wrong size");
        archived.emplace(records[i].uid, posting);
    }
    return archived;
}

void World::archive_complaints(Complaints *found) const
{
    const std::vector<IndexRecord> records = index_of(box());
    if (records.empty()) {
        found->insert("there is no index");
        return;
    }
    if (records[0].flags != validity_) found->insert("the index was made anew");
    const auto archived = archived_postings(*this, found);

    std::map<uint32_t, int> taken;
    for (const auto &used : {archived, promises.sent})
        for (const auto &[number, posting] : used)
            if (taken.emplace(number, posting).first->second != posting)
                found->insert("a number was given twice");

    std::set<int> there;
    for (const auto &[number, posting] : archived)
        there.insert(posting);
    if (!archived.empty() && records[0].uid <= archived.rbegin()->first)
        found->insert("the next number is taken");
    for (const auto &[number, posting] : promises.sent) {
        const int64_t first_kept = int64_t{records[0].uid} - keep_;
        if (promises.acknowledged.contains(posting) && number >= first_kept &&
            !there.contains(posting))
            found->insert("an acknowledged posting is lost");
        if (number >= records[0].uid) found->insert("the next number is taken");
    }
    for (const int posting : promises.unheard)
        if (keep_ >= 1000 && !there.contains(posting))
            found->insert("an acknowledged posting is lost");
    for (const int posting : promises.acknowledged) {
        bool is_done = promises.excused.contains(posting);
        for (const auto &sent : promises.sent)
            is_done = is_done || sent.second == posting;
        if (!is_done) found->insert("an acknowledged posting was handed to nobody");
    }
    if (keep_ < 1000 && archived.size() > static_cast<size_t>(keep_))
        found->insert("the archive holds more than it keeps");
}

void World::digest_complaints(Complaints *found) const
{
    const std::set<uint32_t> numbers = numbers_in(list.get("dgtstat"), found);
    for (const auto &[number, posting] : promises.sent)
        if (promises.acknowledged.contains(posting) && !numbers.contains(number) &&
            !promises.digested.contains(number))
            found->insert("the digest forgets a posting");
}

static bool is_locked(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    const bool locked = flock(fd, LOCK_EX | LOCK_NB) < 0;
    close(fd);
    return locked;
}

/* "member.old" without "member.new" may be left by a power cut; the next rewrite removes it. */
static bool is_harmless(const std::string &directory, const std::string &name)
{
    if (!name.ends_with(".old") || name.starts_with("#mix")) return false;
    return !exists(directory + "/" + name.substr(0, name.size() - 4) + ".new");
}

/* Of a delivery that is over.  "jnl/N", which was not handed over, stays for the operator. */
static void work_file_complaints(const TempList &list, Complaints *found)
{
    for (const char *directory : {"jnl", "msg"})
        for (const std::string &name : list_directory(list.control(directory)))
            for (const char *beginning : {"j.", "cmdrpy.", "mldeny."})
                if (name.starts_with(beginning)) found->insert("a work file is left: " + name);
}

void forgive_work_files(Complaints *complaints)
{
    std::erase_if(*complaints, [](const std::string &complaint) {
        return complaint.starts_with("a work file is left");
    });
}

void World::leftover_complaints(Complaints *found) const
{
    work_file_complaints(list, found);
    for (const std::string &directory : {list.control(), box()})
        for (const std::string &name : list_directory(directory)) {
            bool is_side_file = false;
            for (const char *ending : {".new", ".old", ".made"})
                is_side_file = is_side_file || name.find(ending) != std::string::npos;
            if (is_side_file && !is_harmless(directory, name))
                found->insert("a side file is left: " + name);
        }
    for (const std::string &path :
         {list.control("lock"), list.control("confirm.lock"), box() + "/#mix"})
        if (is_locked(path)) found->insert("a lock is left: " + path);
    if (host.live_blocks != 0) found->insert("memory of the host is left");
}

/* Whether the text is nothing but whole lines of the roster. */
static bool is_roster(const std::string &text)
{
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find("\r\n", at);
        if (end == std::string::npos) return false;
        const std::string line = text.substr(at, end - at);
        const size_t blank = line.find(' ');
        if (blank == std::string::npos || line.find('@') > blank) return false;
        const std::string word = line.substr(blank + 1);
        if (word != "ON " && word != "OFF" && word != "DGT") return false;
        at = end + 2;
    }
    return true;
}

static std::string derived(const std::string &roster, const std::string &word)
{
    std::string text;
    for (size_t at = 0; at < roster.size();) {
        const size_t blank = roster.find(' ', at), end = roster.find("\r\n", at);
        if (roster.compare(blank + 1, 3, word) == 0) text += roster.substr(at, blank - at) + "\r\n";
        at = end + 2;
    }
    return text;
}

void World::roster_complaints(Complaints *found) const
{
    const std::string roster = list.get("member");
    if (!is_roster(roster)) {
        found->insert("the roster is damaged");
        return;
    }
    if (list.get("active") != derived(roster, "ON ")) found->insert("\"active\" disagrees");
    if (list.get("digest") != derived(roster, "DGT")) found->insert("\"digest\" disagrees");
}

Complaints World::control_complaints() const
{
    Complaints found;
    roster_complaints(&found);
    leftover_complaints(&found);
    return found;
}

Complaints World::complaints() const
{
    Complaints found = control_complaints();
    archive_complaints(&found);
    digest_complaints(&found);
    return found;
}
