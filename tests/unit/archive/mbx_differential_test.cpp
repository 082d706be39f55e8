/* Random sequences of operations, through the module on one mailbox and in their plain form on
   another: the same files, the same printed text, the same log lines. */
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/reference/index_literal.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

/* A mailbox twice, each with up to three handles. */
class Twins
{
  public:
    explicit Twins(unsigned seed) : random_(seed) {}
    ~Twins()
    {
        for (int slot = 0; slot < slots; ++slot)
            close(slot);
    }
    void step();
    void compare(const std::string &what);

  private:
    static constexpr int slots = 3;
    struct Slot {
        MailboxHandle *handle = nullptr;
        literal::Mailbox plain;
    };

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }
    int used_slot();
    void open(int slot);
    void close(int slot);
    void change_flags(int slot);
    void check(int slot, bool second);
    void expunge(int slot);
    void append();
    void change_behind(); /* as another program would */
    void damage();

    std::mt19937 random_;
    Box box_, twin_;
    Slot slots_[slots];
    OutCapture out_;
    literal::Log log_;
};

void Twins::open(int slot)
{
    static const uint32_t modes[] = {0,
                                     0,
                                     MAILBOX_NO_WRITE_BACK,
                                     MAILBOX_QUIET,
                                     MAILBOX_READ_ONLY,
                                     MAILBOX_READ_ONLY | MAILBOX_NO_WRITE_BACK};
    const uint32_t mode = modes[below(std::size(modes))];
    Slot &at = slots_[slot];
    at.handle = list_mbx_open(box_.path(), static_cast<int>(mode));
    EXPECT_EQ(literal::open(twin_.path(), mode, &at.plain, &log_), at.handle != nullptr);
}

/* Times differ between the twins: every check is made to look. */
void Twins::close(int slot)
{
    Slot &at = slots_[slot];
    if (at.handle == nullptr) return;
    at.handle->mode |= MAILBOX_FORCE_CHECK;
    at.plain.mode |= MAILBOX_FORCE_CHECK;
    list_mbx_close(at.handle);
    literal::close(&at.plain, &log_);
    at.handle = nullptr;
}

void Twins::change_flags(int slot)
{
    Slot &at = slots_[slot];
    const uint32_t count = at.handle->index[0].header_size;
    ASSERT_EQ(count, at.plain.index.size());
    if (count <= 1) return;
    const uint32_t record = 1 + below(count - 1);
    uint32_t bits = below(128);
    if (below(3) != 0) bits &= ~static_cast<uint32_t>(MESSAGE_DELETED);
    const uint32_t mark = below(8) == 0 ? MESSAGE_EXPUNGE : MESSAGE_CHANGED;
    for (uint32_t *flags : {&at.handle->index[record].flags, &at.plain.index[record].flags}) {
        if (*flags & MESSAGE_VANISHED) continue;
        *flags = mark == MESSAGE_EXPUNGE ? *flags | mark : (*flags & 0x800u) | bits | mark;
    }
}

void Twins::check(int slot, bool second)
{
    Slot &at = slots_[slot];
    at.handle->mode |= MAILBOX_FORCE_CHECK;
    at.plain.mode |= MAILBOX_FORCE_CHECK;
    const bool same = at.handle->index[0].flags == box_.index()[0].flags;
    if (second && same) {
        mlmbx_checknewmail2(at.handle);
        literal::checknewmail2(&at.plain, &log_);
    } else {
        mlmbx_checknewmail(at.handle);
        literal::checknewmail(&at.plain, &log_);
    }
}

void Twins::expunge(int slot)
{
    Slot &at = slots_[slot];
    const bool report = below(2) == 1;
    const bool marked = below(3) == 0;
    if (marked)
        (void)mlmbx_expunge2(at.handle, report);
    else
        mlmbx_expunge(at.handle, report);
    literal::expunge(&at.plain, report, marked ? MESSAGE_EXPUNGE : MESSAGE_DELETED, &log_);
}

void Twins::append()
{
    std::vector<literal::Source> batch;
    for (uint32_t i = 0, count = 1 + below(4); i < count; ++i) {
        const std::string text = sample_message(below(1000));
        const literal::Source source = {box_.source(text), below(128), header_size_of(text),
                                        static_cast<uint32_t>(text.size())};
        batch.push_back(source);
    }
    IndexHandle *handle = NO_INDEX_HANDLE;
    for (const literal::Source &source : batch)
        handle = mbxappend(box_.path(), handle, source.file.c_str(), source.flags,
                           source.header_size, source.size, 0);
    EXPECT_EQ(NO_INDEX_HANDLE, mbxappend(nullptr, handle, nullptr, 0, 0, 0, 0));
    literal::append(twin_.path(), batch, &log_);
}

void Twins::change_behind()
{
    Records records = box_.index();
    ASSERT_EQ(bytes_of(records), read_file(twin_.name("#mix")));
    if (records.size() <= 1) return;
    const uint32_t record = 1 + below(static_cast<uint32_t>(records.size() - 1));
    switch (below(6)) {
    case 0:
        records.erase(records.begin() + record);
        break;
    case 1:
        records[0].flags += 1;
        break; /* another UIDVALIDITY */
    case 2:
        records[record].flags |= MESSAGE_EXPUNGE;
        break;
    case 3:
        records[0].header_size = below(1000);
        break;
    case 4:
        records[record].flags ^= MESSAGE_RECENT;
        break;
    default:
        records[record].flags = below(128);
        break;
    }
    box_.put_index(records);
    twin_.put_index(records);
}

/* At times an index is damaged, which the next open repairs. */
void Twins::damage()
{
    for (int slot = 0; slot < slots; ++slot)
        close(slot);
    Records records = box_.index();
    if (records.size() < 3 || below(3) == 0)
        records.clear();
    else
        std::swap(records[1], records[2]);
    box_.put_index(records);
    twin_.put_index(records);
    open(0);
    compare("the rebuild");
    twin_.put_index(box_.index()); /* the clock may have struck between them */
}

int Twins::used_slot()
{
    const int slot = static_cast<int>(below(slots));
    if (slots_[slot].handle == nullptr) open(slot);
    return slots_[slot].handle != nullptr ? slot : -1;
}

void Twins::step()
{
    const uint32_t what = below(100);
    if (what < 15) return append();
    if (what < 25) return change_behind();
    if (what < 26) return damage();
    const int slot = used_slot();
    if (slot < 0) return;
    if (what < 60)
        change_flags(slot);
    else if (what < 75)
        check(slot, false);
    else if (what < 85)
        check(slot, true);
    else if (what < 92)
        expunge(slot);
    else
        close(slot);
}

static std::string without(std::string text, const std::string &path)
{
    for (size_t at; (at = text.find(path)) != std::string::npos;)
        text.erase(at, path.size());
    return text;
}

/* Everything but the second in which an index was rebuilt. */
static std::string tree_without_validity(const Box &box)
{
    Records records = box.index();
    if (records.empty()) return tree_text(box.path());
    std::string text = bytes_of(records).substr(8);
    for (const std::string &name : list_directory(box.name("#msg")))
        text += "\n" + name + " " + read_file(box.name("#msg/" + name));
    for (const std::string &name : list_directory(box.path()))
        text += "\n" + name;
    return std::to_string(records[0].uid) + text;
}

void Twins::compare(const std::string &what)
{
    std::string printed = out_.take(), twin_printed = log_.printed;
    log_.printed.clear();
    ASSERT_EQ(twin_printed, printed) << what;
    std::string log, twin_log;
    for (const std::string &line : take_log_lines(true))
        log += without(line, box_.path()) + "\n";
    for (const std::string &line : log_.lines)
        twin_log += without(line, twin_.path()) + "\n";
    log_.lines.clear();
    ASSERT_EQ(twin_log, log) << what;
    ASSERT_EQ(tree_without_validity(twin_), tree_without_validity(box_)) << what;
    for (const Slot &slot : slots_) {
        if (slot.handle == nullptr) continue;
        const Records view(slot.handle->index,
                           slot.handle->index + slot.handle->index[0].header_size);
        ASSERT_EQ(hex(bytes_of(slot.plain.index)), hex(bytes_of(view))) << what;
        ASSERT_EQ(slot.plain.mode, slot.handle->mode) << what;
    }
}

TEST(ModuleAndPlainForm, DoTheSame)
{
    WithoutSync no_sync;
    for (unsigned seed = 1; seed <= 12; ++seed) {
        Twins twins(seed);
        take_log();
        for (int step = 0; step < 120; ++step) {
            twins.step();
            twins.compare("seed " + std::to_string(seed) + " step " + std::to_string(step));
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}
