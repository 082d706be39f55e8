/* Changing a member's status, or that of many: three bytes of a copy of the roster, at their own
   place in the file.  Lines may end in LF alone, or in a CR and an LF that two reads brought in;
   what was handed out then is longer or shorter than what the file has, so places are never
   computed from it. */
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "module/os.h"
#include "module/tcb.h"
#include "store/file.h"
#include "store/rewrite.h"
#include "store/roster.h"

static const RewriteTexts chg_texts = {
    .recover = {1, 173, "mlname=%s chg_member recover error %m [%s]"},
    .open_new = {1, 176, "mlname=%s chg_member f_open error %m [%s]"},
    .open_source = {1, 174, "mlname=%s chg_member member not exist %m [%s]"},
    .write = {1, 178, "mlname=%s chg_member fputs error %m [%s]"},
    .read = {1, 179, "mlname=%s chg_member fgets error %m [%s]"},
    .close = {1, 180, "mlname=%s chg_member close error %m [%s]"},
    .renew = {1, 181, "mlname=%s chg_member renew error %m [%s]"},
};
static const FailText chg_copy(1, 175, "mlname=%s chg_member copy file error %m [%s %s]");
static const FailText chg_seek(1, 177, "mlname=%s chg_member fseek error %m [%s]");

#define WORD_SIZE 3 /* of every word in mi2ms */

static int fail(const ControlRewrite &rewrite, const FailText &text)
{
    return log_failure(text, rewrite.job->list_name, rewrite.new_path());
}

/* Bytes of the stored word that may be overwritten: at most three, none of them of a line end. */
static uint32_t room_of_word(const MemberLine &member)
{
    uint32_t room = 0;
    while (room < member.word_size && room < WORD_SIZE && member.word[room] != '\r' &&
           member.word[room] != '\n')
        ++room;
    return room;
}

/* Whether the file has exactly this text at offset. */
static bool stands_at(int fd, off_t offset, const char *text, size_t size)
{
    char block[VIEW_LINE_SIZE];
    for (size_t done = 0; done < size;) {
        const ssize_t got =
            pread_some(fd, block + done, size - done, offset + static_cast<off_t>(done));
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return memcmp(block, text, size) == 0;
}

/* Place in the file of the line just read, or -1 (logged).  The place is proved by reading it: a
   zero byte in the roster hides bytes from the reader, and then no place is certain. */
static off_t place_of_line(const ControlRewrite &rewrite, const LineView &line)
{
    const off_t behind = Ftell(rewrite.out);
    if (behind < 0) return fail(rewrite, chg_seek);
    const off_t place = behind - line.size - line.end_size;
    if (place >= 0 && stands_at(rewrite.out->fd, place, line.text, line.size)) return place;
    errno = EIO;
    return fail(rewrite, chg_seek);
}

/* A stored word that is to be overwritten, and how many of its bytes may be. */
struct WordPlace {
    off_t place;
    uint32_t room;
};

/* Where the line's word is: 1, 0 it is the one that is wanted already, -1 (logged). */
static int find_word(const ControlRewrite &rewrite, const LineView &line, const char *word,
                     WordPlace *out)
{
    const MemberLine member = split_member(line);
    out->room = room_of_word(member);
    if (out->room == WORD_SIZE && memcmp(member.word, word, WORD_SIZE) == 0) return 0;
    out->place = place_of_line(rewrite, line);
    if (out->place < 0) return -1;
    out->place += member.address_size + 1;
    return 1;
}

/* Moves everything from offset up to end by shift bytes further, last block first. */
static int move_up(int fd, off_t offset, off_t end, off_t shift)
{
    char block[FILE_BUFFER_SIZE];
    while (end > offset) {
        const off_t left = end - offset;
        const off_t from = left > FILE_BUFFER_SIZE ? end - FILE_BUFFER_SIZE : offset;
        const size_t size = static_cast<size_t>(end - from);
        const ssize_t got = pread_some(fd, block, size, from);
        if (got != static_cast<ssize_t>(size)) {
            if (got >= 0) errno = EIO;
            return -1;
        }
        if (pwrite_all(fd, block, size, from + shift) < 0) return -1;
        end = from;
    }
    return 0;
}

/* What stands behind a word of fewer than three bytes makes room. */
static int make_room(const ControlRewrite &rewrite, off_t behind, off_t end, off_t shift)
{
    if (shift == 0 || move_up(rewrite.out->fd, behind, end, shift) == 0) return 0;
    setrc_tempfail(); /* as Fputs() does */
    return fail(rewrite, chg_texts.write);
}

static int put_word(const ControlRewrite &rewrite, off_t place, const char *word)
{
    if (Fseek(rewrite.out, place, SEEK_SET) < 0) return fail(rewrite, chg_seek);
    return Fputs(word, rewrite.out) < 0 ? fail(rewrite, chg_texts.write) : 0;
}

/* Overwrites the words, whose places ascend.  A word of fewer than three bytes stands right before
   its line end, as in a roster that was edited by hand, and no line loses its end.  From the last
   to the first, so that each byte moves once.  0, or -1 (logged). */
static int write_words(const ControlRewrite &rewrite, const WordPlace *words, size_t count,
                       const char *word)
{
    off_t shift = 0;
    for (size_t i = 0; i < count; ++i)
        shift += WORD_SIZE - words[i].room;
    off_t end = shift > 0 ? os->lseek(rewrite.out->fd, 0, SEEK_END) : 0;
    if (end < 0) return fail(rewrite, chg_seek);
    while (count-- > 0) {
        const WordPlace &at = words[count];
        if (make_room(rewrite, at.place + at.room, end, shift) < 0) return -1;
        shift -= WORD_SIZE - at.room;
        if (put_word(rewrite, at.place + shift, word) < 0) return -1;
        end = at.place;
    }
    return 0;
}

static int commit_words(ControlRewrite *rewrite, const WordPlace *words, size_t count,
                        const char *word)
{
    return write_words(*rewrite, words, count, word) < 0 ? -1 : rewrite->commit();
}

static int open_for_changing(ControlRewrite *rewrite)
{
    if (rewrite->recover("member") < 0 || rewrite->demand(chg_texts.open_source) < 0) return -1;
    return rewrite->open_copy(chg_copy);
}

/* -- one -- */

/* The address's first line with a known word: its status and, when it is to be changed, its place;
   0 none, -1. */
static int find_change(const ControlRewrite &rewrite, const char *address, const char *word,
                       WordPlace *word_out, size_t *count_out)
{
    const RosterKey key = roster_key(address);
    char joined[VIEW_LINE_SIZE];
    LineView line;
    int got;
    while ((got = Fview(&line, joined, rewrite.out)) > 0) {
        const int status = is_line_of(line, key) ? status_of_line(line) : 0;
        if (status == 0) continue;
        const int changes = find_word(rewrite, line, word, word_out);
        *count_out = changes > 0 ? 1 : 0;
        return changes < 0 ? -1 : status;
    }
    return got < 0 ? fail(rewrite, chg_texts.read) : 0;
}

int chg_member(DeliveryJob *job, const char *address, const char *word)
{
    ControlRewrite rewrite(job, chg_texts);
    if (open_for_changing(&rewrite) < 0) return -1;
    char three[WORD_SIZE + 1];
    snprintf(three, sizeof(three), "%-3s", word);
    WordPlace place;
    size_t count = 0;
    const int former = find_change(rewrite, address, three, &place, &count);
    if (former < 0 || commit_words(&rewrite, &place, count, three) < 0) return -1;
    return former;
}

/* -- many -- */

/* The same for each of the set, in one pass. */
static int find_changes(const ControlRewrite &rewrite, const RosterSet &set, const char *word,
                        int *former_out, WordPlace *words_out, size_t *count_out)
{
    char joined[VIEW_LINE_SIZE];
    LineView line;
    int got;
    while ((got = Fview(&line, joined, rewrite.out)) > 0) {
        const size_t number = set.find(line);
        if (number == RosterSet::NOBODY || former_out[number] != 0) continue;
        former_out[number] = status_of_line(line);
        if (former_out[number] == 0) continue;
        const int changes = find_word(rewrite, line, word, &words_out[*count_out]);
        if (changes < 0) return -1;
        *count_out += static_cast<size_t>(changes);
    }
    return got < 0 ? fail(rewrite, chg_texts.read) : 0;
}

int chg_members(DeliveryJob *job, const RosterSet &set, const char *word, int *former_out)
{
    for (size_t i = 0; i < set.count; ++i)
        former_out[i] = 0;
    ControlRewrite rewrite(job, chg_texts);
    if (open_for_changing(&rewrite) < 0) return -1;
    HostPtr<WordPlace> places((set.count + 1) * sizeof(WordPlace));
    if (places.p == nullptr) return fail(rewrite, chg_copy);
    size_t count = 0;
    if (find_changes(rewrite, set, word, former_out, places.p, &count) < 0) return -1;
    return commit_words(&rewrite, places.p, count, word);
}
