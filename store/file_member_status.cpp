/* Changing a member's status: three bytes of a copy of the roster, at their own place in the file.
   Lines may end in LF alone, or in a CR and an LF that two reads brought in; what was handed out
   then is longer or shorter than what the file has, so places are never computed from it. */
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
static off_t place_of_line(ControlRewrite *rewrite, const LineView &line)
{
    char text[VIEW_LINE_SIZE]; /* the view lies in the read-ahead, which Fseek() empties */
    memcpy(text, line.text, line.size);
    if (Fseek(rewrite->out, 0, SEEK_CUR) < 0) return fail(*rewrite, chg_seek);
    const off_t behind = os->lseek(rewrite->out->fd, 0, SEEK_CUR);
    if (behind < 0) return fail(*rewrite, chg_seek);
    const off_t place = behind - line.size - line.end_size;
    if (place >= 0 && stands_at(rewrite->out->fd, place, text, line.size)) return place;
    errno = EIO;
    return fail(*rewrite, chg_seek);
}

/* Moves everything from offset to the end of the file up by shift bytes, last block first. */
static int move_tail(int fd, off_t offset, off_t shift)
{
    char block[FILE_BUFFER_SIZE];
    off_t end = os->lseek(fd, 0, SEEK_END);
    if (end < 0) return -1;
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

/* A word of fewer than three bytes stands right before its line end, as in a roster that was
   edited by hand; the rest of the file makes room, and no line loses its end. */
static int make_room(ControlRewrite *rewrite, off_t place, uint32_t room)
{
    const int fd = rewrite->out->fd;
    if (room == WORD_SIZE || move_tail(fd, place + room, WORD_SIZE - room) == 0) return 0;
    setrc_tempfail(); /* as Fputs() does */
    return fail(*rewrite, chg_texts.write);
}

static int overwrite_word(ControlRewrite *rewrite, const LineView &line, const char *word)
{
    const MemberLine member = split_member(line);
    const uint32_t room = room_of_word(member);
    if (room == WORD_SIZE && memcmp(member.word, word, WORD_SIZE) == 0) return 0;

    const off_t line_place = place_of_line(rewrite, line);
    if (line_place < 0) return -1;
    const off_t place = line_place + member.address_size + 1;
    if (make_room(rewrite, place, room) < 0) return -1;
    if (Fseek(rewrite->out, place, SEEK_SET) < 0) return fail(*rewrite, chg_seek);
    return Fputs(word, rewrite->out) < 0 ? fail(*rewrite, chg_texts.write) : 0;
}

/* Changes the address's first line with a known word: its former status, 0 none, -1. */
static int change_line(ControlRewrite *rewrite, const char *address, const char *word)
{
    const RosterKey key = roster_key(address);
    char joined[VIEW_LINE_SIZE];
    LineView line;
    int got;
    while ((got = Fview(&line, joined, rewrite->out)) > 0) {
        const int status = is_line_of(line, key) ? status_of_line(line) : 0;
        if (status != 0) return overwrite_word(rewrite, line, word) < 0 ? -1 : status;
    }
    return got < 0 ? fail(*rewrite, chg_texts.read) : 0;
}

int chg_member(DeliveryJob *job, const char *address, const char *word)
{
    ControlRewrite rewrite(job, chg_texts);
    if (rewrite.recover("member") < 0 || rewrite.demand(chg_texts.open_source) < 0 ||
        rewrite.open_copy(chg_copy) < 0)
        return -1;
    char three[WORD_SIZE + 1];
    snprintf(three, sizeof(three), "%-3s", word);
    const int former = change_line(&rewrite, address, three);
    if (former < 0 || rewrite.commit() < 0) return -1;
    return former;
}
