#include "tests/reference/index_literal.h"

#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace literal
{
using Index = std::vector<IndexRecord>;

static std::string contents(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/* Over an existing file in place, as the index keeps its inode. */
static void put(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

static int32_t mtime(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<int32_t>(status.st_mtime) : -1;
}

/* -- transaction -- */

struct Transaction {
    std::string mix;
};

static Transaction begin_transaction(const std::string &path)
{
    Transaction transaction{path + "/#mix"};
    const std::string &mix = transaction.mix;
    if (fs::exists(mix + ".old") && fs::exists(mix + ".new")) {
        put(mix, contents(mix + ".new"));
        fs::remove(mix + ".old");
        return transaction;
    }
    fs::remove(mix + ".old");
    fs::remove(mix + ".new");
    put(mix + ".new", contents(mix));
    return transaction;
}

static Index read(const Transaction &transaction)
{
    const std::string bytes = contents(transaction.mix + ".new");
    Index index(bytes.size() / 16);
    if (index.empty()) return index;
    memcpy(static_cast<void *>(index.data()), bytes.data(), index.size() * 16);
    index[0].header_size = static_cast<uint32_t>(index.size());
    return index;
}

static void write(const Transaction &transaction, const Index &index)
{
    put(transaction.mix + ".new",
        std::string(reinterpret_cast<const char *>(index.data()), index.size() * 16));
}

static int32_t end(const Transaction &transaction)
{
    const std::string &mix = transaction.mix;
    put(mix + ".old", contents(mix));
    put(mix, contents(mix + ".new"));
    fs::remove(mix + ".old");
    fs::remove(mix + ".new");
    return mtime(mix);
}

/* -- printing -- */

static std::string flags_text(uint32_t flags)
{
    if (flags & MESSAGE_VANISHED) return "FLAGS ()";
    static const struct {
        uint32_t bit;
        const char *name;
    } names[] = {{1, "\\Seen"},   {2, "\\Answered"}, {4, "\\Flagged"}, {8, "\\Deleted"},
                 {16, "\\Draft"}, {32, "\\Recent"},  {64, "$MDNSent"}};
    std::string text;
    for (const auto &flag : names)
        if (flags & flag.bit) text += (text.empty() ? "" : " ") + std::string(flag.name);
    return "FLAGS (" + text + ")";
}

static std::string number(size_t value)
{
    return std::to_string(value);
}

static size_t recent(const Index &index)
{
    size_t count = 0;
    for (size_t i = 1; i < index.size(); ++i)
        count += (index[i].flags & MESSAGE_RECENT) != 0;
    return count;
}

static void print_counts(const Index &index, Log *log)
{
    log->printed += "* " + number(index.size() - 1) + " EXISTS\r\n";
    log->printed += "* " + number(recent(index)) + " RECENT\r\n";
}

/* -- open -- */

static void print_open(const Mailbox &box, size_t unseen, Log *log)
{
    const std::string names = "\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent";
    log->printed += "* FLAGS (" + names + ")\r\n";
    print_counts(box.index, log);
    log->printed += "* OK [UIDVALIDITY " + number(box.index[0].flags) + "] UIDs valid\r\n";
    log->printed += "* OK [UIDNEXT " + number(box.index[0].uid) + "] Predicted next UID\r\n";
    if (unseen > 0)
        log->printed += "* OK [UNSEEN " + number(unseen) + "] message " + number(unseen) +
                        " is first unseen\r\n";
    log->printed += "* OK [PERMANENTFLAGS (" +
                    (box.mode & MAILBOX_READ_ONLY ? std::string() : names) + ")] limited\r\n";
}

static bool in_order(const Index &index)
{
    for (size_t i = 1; i < index.size(); ++i)
        if (index[i].uid <= (i > 1 ? index[i - 1].uid : 0)) return false;
    return !index.empty();
}

static void rebuild(const std::string &path, Log *log)
{
    Index index = {{1, static_cast<uint32_t>(time(nullptr)), 1, 0}};
    for (const auto &entry : fs::directory_iterator(path + "/#msg")) {
        const std::string text = contents(entry.path());
        const size_t blank = text.find("\r\n\r\n");
        index.push_back({static_cast<uint32_t>(std::stoul(entry.path().filename())), 0,
                         blank == std::string::npos ? 0 : static_cast<uint32_t>(blank + 4),
                         static_cast<uint32_t>(text.size())});
    }
    for (size_t i = 1; i < index.size(); ++i)
        for (size_t j = i + 1; j < index.size(); ++j)
            if (index[j].uid < index[i].uid) std::swap(index[i], index[j]);
    if (index.size() > 1) index[0].uid = index.back().uid + 1;
    index[0].header_size = static_cast<uint32_t>(index.size());
    log->lines.push_back("11/636 mbx_rebuild: rebuild " + path);
    put(path + "/#mix",
        std::string(reinterpret_cast<const char *>(index.data()), index.size() * 16));
}

bool open(const std::string &path, uint32_t mode, Mailbox *box, Log *log)
{
    *box = {path, 0, mode, {}};
    const Transaction transaction = begin_transaction(path);
    box->index = read(transaction);
    if (!in_order(box->index)) {
        log->lines.push_back(box->index.empty() ? "1/603 mbx_open(): mlmbx_readidx failed Success"
                                                : "1/604 mbx_open: " + path + " invalid uid");
        fs::remove(transaction.mix + ".new");
        rebuild(path, log);
        return false;
    }
    size_t unseen = 0;
    for (size_t i = box->index.size() - 1; i >= 1; --i)
        if (!(box->index[i].flags & MESSAGE_SEEN)) unseen = i;
    if (recent(box->index) > 0 && !(mode & MAILBOX_NO_WRITE_BACK)) write(transaction, box->index);
    box->stamp = end(transaction);
    if (!(mode & MAILBOX_QUIET)) print_open(*box, unseen, log);
    return true;
}

void close(Mailbox *box, Log *log)
{
    if (box->mode & MAILBOX_NO_WRITE_BACK) return;
    box->mode |= MAILBOX_QUIET;
    checknewmail(box, log);
}

/* -- reconciliation -- */

struct Reconciled {
    bool taken = false;
    size_t next = 1; /* of the fresh index */
};

enum Kind { noop, fetch, expunging, expunging_marked };

static Reconciled reconcile(Index *mine, Index *fresh, Kind kind, bool report, uint32_t *mode,
                            Log *log)
{
    Reconciled result;
    size_t i = 1, s = 1;
    size_t &j = result.next;
    while (i < mine->size()) {
        IndexRecord &m = (*mine)[i];
        if (j < fresh->size() && m.uid == (*fresh)[j].uid) {
            IndexRecord &f = (*fresh)[j];
            if (kind == expunging_marked) f.flags = (f.flags & ~0x800u) | (m.flags & 0x800u);
            if ((m.flags & 95) != (f.flags & 95)) {
                if (m.flags & 0x400) {
                    f.flags = m.flags & ~0x400u;
                    if (kind == fetch) m.flags = f.flags;
                    result.taken = true;
                } else {
                    m.flags = f.flags;
                    if (report)
                        log->printed +=
                            "* " + number(s) + " FETCH (" + flags_text(f.flags) + ")\r\n";
                }
            } else {
                if (m.flags & MESSAGE_RECENT) f.flags |= MESSAGE_RECENT;
                m.flags &= ~0x400u;
            }
            ++i, ++j, ++s;
        } else if (j < fresh->size() && m.uid >= (*fresh)[j].uid) {
            break;
        } else {
            if (kind == fetch) {
                m.flags |= MESSAGE_VANISHED;
                *mode |= MAILBOX_RESYNC;
            } else if (report) {
                log->printed += "* " + number(s) + " EXPUNGE\r\n";
            }
            ++i;
        }
    }
    return result;
}

static void print_replaced(const Index &mine, const Index &fresh, Log *log)
{
    for (size_t i = 1; i < mine.size(); ++i)
        log->printed += "* 1 EXPUNGE\r\n";
    if (fresh.size() > 1) print_counts(fresh, log);
}

static void replace(Mailbox *box, const Index &fresh)
{
    box->index = fresh;
    box->mode &= ~static_cast<uint32_t>(MAILBOX_FORCE_CHECK | MAILBOX_RESYNC);
}

void checknewmail(Mailbox *box, Log *log)
{
    if (mtime(box->path + "/#mix") == box->stamp &&
        !(box->mode & (MAILBOX_FORCE_CHECK | MAILBOX_RESYNC)))
        return;
    const bool report = !(box->mode & MAILBOX_QUIET);
    const Transaction transaction = begin_transaction(box->path);
    Index fresh = read(transaction);
    if (fresh[0].flags != box->index[0].flags) {
        box->stamp = end(transaction);
        if (report) print_replaced(box->index, fresh, log);
        replace(box, fresh);
        return;
    }
    const Reconciled result = reconcile(&box->index, &fresh, noop, report, &box->mode, log);
    if (result.next < fresh.size() && report) {
        print_counts(fresh, log);
        if (!(box->mode & MAILBOX_READ_ONLY)) write(transaction, fresh);
    } else if (result.taken && !(box->mode & MAILBOX_READ_ONLY)) {
        write(transaction, fresh);
    }
    box->stamp = end(transaction);
    replace(box, fresh);
}

void checknewmail2(Mailbox *box, Log *log)
{
    if (mtime(box->path + "/#mix") == box->stamp && !(box->mode & MAILBOX_FORCE_CHECK)) return;
    const bool report = !(box->mode & MAILBOX_QUIET);
    const Transaction transaction = begin_transaction(box->path);
    Index fresh = read(transaction);
    const Reconciled result = reconcile(&box->index, &fresh, fetch, report, &box->mode, log);
    const bool has_new = result.next < fresh.size();
    if (has_new) {
        for (size_t j = result.next; j < fresh.size(); ++j)
            if (box->index.size() == 1 || fresh[j].uid > box->index.back().uid)
                box->index.push_back(fresh[j]);
        box->index[0].header_size = static_cast<uint32_t>(box->index.size());
        box->index[0].uid = box->index.back().uid + 1;
    }
    if (has_new && report) {
        print_counts(box->index, log);
        if (!(box->mode & MAILBOX_READ_ONLY)) write(transaction, fresh);
    } else if (result.taken && !(box->mode & MAILBOX_READ_ONLY)) {
        write(transaction, fresh);
    }
    box->stamp = end(transaction);
    box->mode &= ~static_cast<uint32_t>(MAILBOX_FORCE_CHECK);
}

void expunge(Mailbox *box, bool report, uint32_t mark, Log *log)
{
    if (box->mode & MAILBOX_NO_WRITE_BACK) return;
    const Transaction transaction = begin_transaction(box->path);
    Index fresh = read(transaction);
    if (fresh[0].flags != box->index[0].flags) {
        box->stamp = end(transaction);
        if (report) print_replaced(box->index, fresh, log);
        replace(box, fresh);
        return;
    }
    const Kind kind = mark == MESSAGE_EXPUNGE ? expunging_marked : expunging;
    const Reconciled result = reconcile(&box->index, &fresh, kind, report, &box->mode, log);
    if (result.next < fresh.size() && report) print_counts(fresh, log);
    std::vector<std::pair<size_t, uint32_t>> removed;
    for (size_t i = 1; i < fresh.size();) {
        if (!(fresh[i].flags & mark)) {
            ++i;
            continue;
        }
        removed.emplace_back(i, fresh[i].uid);
        fresh.erase(fresh.begin() + static_cast<long>(i));
        fresh[0].header_size -= 1;
    }
    if (result.taken || !removed.empty()) write(transaction, fresh);
    box->stamp = end(transaction);
    replace(box, fresh);
    for (const auto &[sequence, uid] : removed) {
        if (report) log->printed += "* " + number(sequence) + " EXPUNGE\r\n";
        unlink((box->path + "/#msg/" + number(uid)).c_str());
    }
}

/* -- append -- */

void append(const std::string &path, const std::vector<Source> &batch, Log *log)
{
    const Transaction transaction = begin_transaction(path);
    Index index = read(transaction);
    for (const Source &source : batch) {
        const uint32_t uid = index[0].uid++;
        index.push_back({uid, source.flags | MESSAGE_RECENT, source.header_size, source.size});
        index[0].header_size += 1;
        const std::string to = path + "/#msg/" + number(uid);
        if (link(source.file.c_str(), to.c_str()) == 0) continue;
        log->lines.push_back("1/618 mbx_append: link(" + source.file + ", " + to +
                             "): " + strerror(errno));
        (void)end(transaction);
        return;
    }
    for (size_t i = 1; i < index.size(); ++i)
        index[i].flags &= ~static_cast<uint32_t>(MESSAGE_EXPUNGE);
    write(transaction, index);
    (void)end(transaction);
}
} // namespace literal
