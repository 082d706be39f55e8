/* Any bytes as the roster of a list: looking an address up, adding, removing and changing it, and
   what is derived from the roster, beside a plain way over its lines.  The first byte of the input
   chooses what is done; the first line behind it is the address, the rest is the roster. */
#include <algorithm>

#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "store/file.h"

static bool is_line_of(const std::string &piece, const std::string &address)
{
    const Member member = member_of(piece);
    return member.is_one && same_nocase(member.address, address);
}

class Roster
{
  public:
    Roster(QuickList *quick, const ArgumentAndFile &input)
        : quick_(quick), address_(input.argument), before_(input.contents),
          pieces_(pieces_of(before_))
    {
        quick->list.put("member", before_);
        const auto found =
            std::find_if(pieces_.begin(), pieces_.end(),
                         [this](const std::string &piece) { return is_line_of(piece, address_); });
        at_ = static_cast<size_t>(found - pieces_.begin());
    }

    void look_up()
    {
        char line[LINE_SIZE];
        demand(get_member(quick_->job(), address_.c_str(), line) == 0);
        demand(line == (is_member() ? pieces_[at_] : ""));
    }

    void add()
    {
        const int result = add_member(quick_->job(), address_.c_str());
        if (address_.size() > 4000) return; /* may be too long for a line */
        if (is_member()) {
            demand(result == member_of(pieces_[at_]).status);
            demand(quick_->list.get("member") == before_);
            return;
        }
        demand(result == 0);
        std::string wanted = joined([](const std::string &) { return true; });
        if (!pieces_.empty() && !pieces_.back().ends_with('\n')) wanted += "\r\n";
        demand(quick_->list.get("member") == wanted + address_ + " ON \r\n");
    }

    void remove()
    {
        int status = 0;
        for (const std::string &piece : pieces_)
            if (is_line_of(piece, address_)) status = member_of(piece).status;
        demand(del_member(quick_->job(), address_.c_str()) == status);
        demand(quick_->list.get("member") ==
               joined([this](const std::string &piece) { return !is_line_of(piece, address_); }));
    }

    /* The first line of the address with a known word gets the new one; no other byte changes. */
    void change(int status)
    {
        if (before_.find('\0') != std::string::npos) return change_anyhow(status);
        for (at_ = 0; at_ < pieces_.size(); ++at_)
            if (is_line_of(pieces_[at_], address_) && member_of(pieces_[at_]).status != 0) break;
        const int former = is_member() ? member_of(pieces_[at_]).status : 0;
        demand(chg_member(quick_->job(), address_.c_str(), mi2ms[status]) == former);
        std::vector<std::string> after = pieces_of(quick_->list.get("member"));
        if (!is_member()) return demand(quick_->list.get("member") == before_);
        if (longest() > 4000) return; /* its pieces may be others now */
        demand(after.size() == pieces_.size());
        demand(member_of(after[at_]).status == status);
        demand(member_of(after[at_]).address == member_of(pieces_[at_]).address);
        after[at_] = pieces_[at_];
        demand(after == pieces_);
    }

    void derive()
    {
        demand(reflect_include(quick_->job(), "active") == 0);
        demand(reflect_include(quick_->job(), "digest") == 0);
        demand(quick_->list.get("active") == addresses(1));
        demand(quick_->list.get("digest") == addresses(3));
    }

    /* What a rewrite that was given up leaves is for the next one to discard. */
    void check_nothing_left()
    {
        demand(!exists(quick_->list.control("member.old")));
        if (refused_) demand(f_recover(quick_->list.control("member").c_str()) == 0);
        demand(!exists(quick_->list.control("member.new")));
    }

  private:
    bool is_member() const { return at_ < pieces_.size(); }

    template <class Test> std::string joined(const Test &wanted) const
    {
        std::string text;
        const std::vector<std::string> kept = kept_pieces_of(before_);
        for (size_t i = 0; i < pieces_.size(); ++i)
            if (wanted(pieces_[i])) text += kept[i];
        return text;
    }

    std::string addresses(int status) const
    {
        std::string text;
        for (const std::string &piece : pieces_)
            if (member_of(piece).status == status) text += member_of(piece).address + "\r\n";
        return text;
    }

    size_t longest() const
    {
        size_t size = 0;
        for (const std::string &piece : pieces_)
            size = std::max(size, piece.size());
        return size;
    }

    /* Zero bytes hide bytes of the roster from the reader: it may refuse, and then nothing changes;
       if not, three bytes do, or bytes are moved up for them. */
    void change_anyhow(int status)
    {
        const int former = chg_member(quick_->job(), address_.c_str(), mi2ms[status]);
        demand(former >= -1 && former <= 3);
        refused_ = former < 0;
        const std::string after = quick_->list.get("member");
        if (former <= 0) return demand(after == before_);
        demand(after.size() >= before_.size() && after.size() <= before_.size() + 3);
    }

    QuickList *quick_;
    std::string address_, before_;
    std::vector<std::string> pieces_;
    bool refused_ = false;
    size_t at_; /* of the address's first line, or how many pieces there are */
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QuickList quick;
    if (size < 1 || size > 50000) return 0;
    Roster roster(&quick, argument_and_file(data + 1, size - 1));
    roster.look_up();
    switch (data[0] % 6) {
    case 0:
        roster.add();
        break;
    case 1:
        roster.remove();
        break;
    case 2:
        roster.derive();
        break;
    default:
        roster.change(data[0] % 6 - 2);
        break;
    }
    roster.check_nothing_left();
    return 0;
}
