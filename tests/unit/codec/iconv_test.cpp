/* The converters against the C library's iconv: everything that both convert must be equal, save
   what the tables here list. */
#include <iconv.h>

#include <map>
#include <random>

#include "codec/conv.h"
#include "tests/unit/codec/codec_calls.h"

namespace
{
class Iconv
{
  public:
    Iconv(const char *from, const char *to) : state_(iconv_open(to, from)) {}
    ~Iconv()
    {
        if (usable()) iconv_close(state_);
    }
    Iconv(const Iconv &) = delete;
    Iconv &operator=(const Iconv &) = delete;
    bool usable() const { return state_ != reinterpret_cast<iconv_t>(-1); }

    /* False when the library refuses the text. */
    bool convert(const std::string &text, std::string *out)
    {
        out->assign(text.size() * 5 + 16, '\0');
        std::string copy = text;
        char *in = copy.data(), *to = out->data();
        size_t left = copy.size(), room = out->size();
        iconv(state_, nullptr, nullptr, nullptr, nullptr);
        const bool good = iconv(state_, &in, &left, &to, &room) != static_cast<size_t>(-1) &&
                          iconv(state_, nullptr, nullptr, &to, &room) != static_cast<size_t>(-1);
        out->resize(out->size() - room);
        return good;
    }

  private:
    iconv_t state_;
};

/* What came of a set of characters: how many were equal, what the library refused, and what
   differs, "text" to "ours / theirs". */
struct Comparison {
    int equal = 0, refused = 0;
    std::map<std::string, std::string> different;
};
} // namespace

static std::string our_euc2jis(const std::string &text)
{
    std::string out(static_cast<size_t>(ample_size(text)), '\0');
    EXPECT_EQ(0, euc2jis(text.c_str(), out.data(), ample_size(text)));
    return out.c_str();
}

static std::string our_sjis2jis(const std::string &text)
{
    std::string out(static_cast<size_t>(ample_size(text)), '\0');
    return sjis2jis(text.c_str(), out.data(), ample_size(text) - 12);
}

static std::string our_jis2sjis(const std::string &text)
{
    std::string in = text, out(static_cast<size_t>(ample_size(text)), '\0');
    EXPECT_NE(nullptr, jis2sjis(in.data(), out.data(), ample_size(text))) << hex(text);
    return out.c_str();
}

static void compare(const std::string &text, const std::string &ours, Iconv *library,
                    Comparison *comparison)
{
    std::string theirs;
    if (!library->convert(text, &theirs))
        ++comparison->refused;
    else if (theirs == ours)
        ++comparison->equal;
    else
        comparison->different[hex(text)] = hex(ours) + " / " + hex(theirs);
}

using Convert = std::string(const std::string &);

static Comparison compare_all(const std::vector<std::string> &texts, Convert *ours, Iconv *library)
{
    Comparison comparison;
    for (const std::string &text : texts)
        compare(text, ours(text), library, &comparison);
    return comparison;
}

static std::vector<std::string> all_singles(int first, int last, const std::string &before = "")
{
    std::vector<std::string> texts;
    for (int c = first; c <= last; ++c)
        texts.push_back(before + static_cast<char>(c));
    return texts;
}

/* The 94 rows of 94 characters as EUC-JP. */
static std::vector<std::string> all_euc_pairs()
{
    std::vector<std::string> texts;
    for (int lead = 0xA1; lead <= 0xFE; ++lead)
        for (int trail = 0xA1; trail <= 0xFE; ++trail)
            texts.push_back({static_cast<char>(lead), static_cast<char>(trail)});
    return texts;
}

static std::vector<std::string> all_jis_pairs(const std::string &before)
{
    std::vector<std::string> texts;
    for (const std::string &euc : all_euc_pairs())
        texts.push_back(before + static_cast<char>(euc[0] & 0x7F) +
                        static_cast<char>(euc[1] & 0x7F) + "\x1b(B");
    return texts;
}

static std::vector<std::string> all_sjis_pairs()
{
    std::vector<std::string> texts;
    for (int lead = 0x81; lead <= 0xEF; ++lead)
        for (int trail = 0x40; trail <= 0xFC; ++trail)
            if ((lead <= 0x9F || lead >= 0xE0) && trail != 0x7F)
                texts.push_back({static_cast<char>(lead), static_cast<char>(trail)});
    return texts;
}

/* The set has 6,879 characters on its 8,836 places; ours passes the others on as well. */
static constexpr int ASSIGNED = 6879, UNASSIGNED = 8836 - 6879;

using Differences = std::map<std::string, std::string>;

#define NEED(library)                                                                              \
    ASSERT_TRUE((library).usable()) << "this C library lacks the conversion (package libc6)"

TEST(IconvComparison, EucCharactersAreEqual)
{
    Iconv library("EUC-JP", "ISO-2022-JP");
    NEED(library);
    const Comparison ascii = compare_all(all_singles(1, 0x7F), our_euc2jis, &library);
    EXPECT_EQ(127, ascii.equal);
    const Comparison pairs = compare_all(all_euc_pairs(), our_euc2jis, &library);
    EXPECT_EQ(ASSIGNED, pairs.equal);
    EXPECT_EQ(UNASSIGNED, pairs.refused);
    EXPECT_EQ(Differences{}, pairs.different);
}

TEST(IconvComparison, SjisCharactersAreEqual)
{
    Iconv library("SHIFT_JIS", "ISO-2022-JP");
    NEED(library);
    const Comparison pairs = compare_all(all_sjis_pairs(), our_sjis2jis, &library);
    EXPECT_EQ(ASSIGNED, pairs.equal);
    EXPECT_EQ(UNASSIGNED, pairs.refused);
    EXPECT_EQ(Differences{}, pairs.different);
}

TEST(IconvComparison, SjisSinglesAreEqualButForYenAndOverline)
{
    Iconv library("SHIFT_JIS", "ISO-2022-JP");
    NEED(library);
    const Comparison ascii = compare_all(all_singles(1, 0x7F), our_sjis2jis, &library);
    EXPECT_EQ(125, ascii.equal);
    /* strictly these two places are the yen sign and the overline, for which the library shifts to
       the Japanese form of ASCII; everybody means the backslash and the tilde */
    EXPECT_EQ(
        (Differences{{"5c", "5c / 1b 28 4a 5c 1b 28 42"}, {"7e", "7e / 1b 28 4a 7e 1b 28 42"}}),
        ascii.different);
}

TEST(IconvComparison, VendorSjisDiffersInDuplicatesOnly)
{
    Iconv library("CP932", "ISO-2022-JP");
    NEED(library);
    const Comparison ascii = compare_all(all_singles(1, 0x7F), our_sjis2jis, &library);
    EXPECT_EQ(127, ascii.equal);
    const Comparison pairs = compare_all(all_sjis_pairs(), our_sjis2jis, &library);
    /* six characters (wave dash, minus sign and the like) have another Unicode place there and do
       not come back; ours passes them and the whole vendor row on */
    EXPECT_EQ(ASSIGNED - 6, pairs.equal);
    EXPECT_EQ(UNASSIGNED + 6 - 9, pairs.refused);
    /* nine mathematical signs of the vendor's row stand in row 2 as well, where the library puts
       them; ours leaves them in their row */
    const Differences duplicates = {
        {"87 90", "1b 24 42 2d 70 1b 28 42 / 1b 24 42 22 62 1b 28 42"},
        {"87 91", "1b 24 42 2d 71 1b 28 42 / 1b 24 42 22 61 1b 28 42"},
        {"87 92", "1b 24 42 2d 72 1b 28 42 / 1b 24 42 22 69 1b 28 42"},
        {"87 95", "1b 24 42 2d 75 1b 28 42 / 1b 24 42 22 65 1b 28 42"},
        {"87 96", "1b 24 42 2d 76 1b 28 42 / 1b 24 42 22 5d 1b 28 42"},
        {"87 97", "1b 24 42 2d 77 1b 28 42 / 1b 24 42 22 5c 1b 28 42"},
        {"87 9a", "1b 24 42 2d 7a 1b 28 42 / 1b 24 42 22 68 1b 28 42"},
        {"87 9b", "1b 24 42 2d 7b 1b 28 42 / 1b 24 42 22 41 1b 28 42"},
        {"87 9c", "1b 24 42 2d 7c 1b 28 42 / 1b 24 42 22 40 1b 28 42"},
    };
    EXPECT_EQ(duplicates, pairs.different);
}

TEST(IconvComparison, TheLibraryRefusesHalfWidthKatakana)
{
    Iconv euc("EUC-JP", "ISO-2022-JP"), sjis("SHIFT_JIS", "ISO-2022-JP");
    NEED(euc);
    NEED(sjis);
    EXPECT_EQ(63, compare_all(all_singles(0xA1, 0xDF, "\x8E"), our_euc2jis, &euc).refused);
    EXPECT_EQ(63, compare_all(all_singles(0xA1, 0xDF), our_sjis2jis, &sjis).refused);
}

TEST(IconvComparison, JisCharactersAreEqualInBothSets)
{
    Iconv library("ISO-2022-JP", "SHIFT_JIS");
    NEED(library);
    for (const char *escape : {"\x1b$B", "\x1b$@"}) {
        const Comparison pairs = compare_all(all_jis_pairs(escape), our_jis2sjis, &library);
        EXPECT_EQ(ASSIGNED, pairs.equal) << escape + 1;
        EXPECT_EQ(UNASSIGNED, pairs.refused) << escape + 1;
        EXPECT_EQ(Differences{}, pairs.different) << escape + 1;
    }
}

TEST(IconvComparison, JisAsciiIsEqual)
{
    for (const char *to : {"SHIFT_JIS", "CP932"}) {
        Iconv library("ISO-2022-JP", to);
        NEED(library);
        const Comparison ascii = compare_all(all_singles(0x20, 0x7E), our_jis2sjis, &library);
        EXPECT_EQ(95, ascii.equal) << to;
    }
}

/* Lines of characters that both sides know. */
static std::string random_text(std::mt19937 *random, const std::vector<std::string> &characters)
{
    std::string text;
    for (unsigned runs = (*random)() % 20; runs > 0; --runs) {
        for (unsigned length = (*random)() % 40; length > 0; --length)
            text += characters[(*random)() % characters.size()];
        for (unsigned length = (*random)() % 20; length > 0; --length)
            text += static_cast<char>((*random)() % 26 + 'a');
        if ((*random)() % 3 == 0) text += '\n';
    }
    return text;
}

static std::vector<std::string> known_to(Iconv *library, const std::vector<std::string> &all)
{
    std::vector<std::string> known;
    std::string ignored;
    for (const std::string &text : all)
        if (library->convert(text, &ignored)) known.push_back(text);
    return known;
}

TEST(IconvComparison, WholeTextsAreEqual)
{
    Iconv euc("EUC-JP", "ISO-2022-JP"), sjis("SHIFT_JIS", "ISO-2022-JP");
    NEED(euc);
    NEED(sjis);
    const std::vector<std::string> euc_known = known_to(&euc, all_euc_pairs()),
                                   sjis_known = known_to(&sjis, all_sjis_pairs());
    std::mt19937 random(8);
    for (int round = 0; round < 300; ++round) {
        std::string text = random_text(&random, euc_known), theirs;
        ASSERT_TRUE(euc.convert(text, &theirs));
        ASSERT_EQ(theirs, our_euc2jis(text));
        text = random_text(&random, sjis_known);
        ASSERT_TRUE(sjis.convert(text, &theirs));
        ASSERT_EQ(theirs, our_sjis2jis(text));
    }
}
