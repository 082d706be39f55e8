/* Message-number arguments as sets. */
#include "commands/cmd_args.h"

#include <string.h>

#include "archive/mbx.h"
#include "module/ascii.h"
#include "module/host_mem.h"
#include "module/unix_sv.h"
#include "store/str.h"

/* -- normalising -- */

static void reverse(char *text, size_t length)
{
    for (size_t left = 0, right = length; left + 1 < right;) {
        const char c = text[left];
        text[left++] = text[--right];
        text[right] = c;
    }
}

/* Drops leading blanks, the line end and the blanks behind commas and hyphens, and turns the text
   round: run twice it treats both sides alike. */
static void correct_one_side(char *text)
{
    chop(text);
    const char *from = skip_space_tab(text);
    size_t length = 0;
    while (*from != '\0') {
        const char c = *from++;
        text[length++] = c;
        if (c == ',' || c == '-') from = skip_space_tab(from);
    }
    text[length] = '\0';
    reverse(text, length);
}

int correct_argstr(char *text)
{
    correct_one_side(text);
    correct_one_side(text);
    return 0;
}

/* -- the archive's numbers -- */

static bool is_empty_archive(IndexRecord *index)
{
    return record_count(index) < 2;
}

static uint32_t first_number(IndexRecord *index)
{
    return index[1].uid;
}

static uint32_t last_number(IndexRecord *index)
{
    return index[record_count(index) - 1].uid;
}

/* -- "all" -- */

static bool is_all(const char *item, size_t length)
{
    return (length == 1 && item[0] == '*') || (length == 3 && begins_nocase(item, "all"));
}

static bool names_all(const char *text)
{
    for (;;) {
        const size_t length = strcspn(text, ",");
        if (is_all(text, length)) return true;
        if (text[length] == '\0') return false;
        text += length + 1;
    }
}

const char *expand_argstr(IndexRecord *index, const char *text, char *out, size_t size)
{
    if (!names_all(text)) return text;
    char range[32] = "";
    if (!is_empty_archive(index))
        snprintf_(range, sizeof(range), "%u-%u", first_number(index), last_number(index));
    if (strlen(range) >= size) return text;
    memcpy(out, range, strlen(range) + 1);
    return out;
}

/* -- sets -- */

static size_t set_size(IndexRecord *index)
{
    if (is_empty_archive(index)) return 1;
    return (static_cast<uint32_t>(last_number(index) - first_number(index)) >> 3) + size_t{1};
}

int id_to_bit(DeliveryJob *job, unsigned char *bitmap, size_t size, uint32_t number)
{
    IndexRecord *index = job->mailbox->index;
    if (number == 0 || is_empty_archive(index)) return -1;
    if (number < first_number(index) || number > last_number(index)) return -1;
    const uint32_t place = number - first_number(index);
    if (place / 8 >= size) return -1;
    bitmap[place / 8] = static_cast<unsigned char>(bitmap[place / 8] | 1u << place % 8);
    return 0;
}

bool is_in_set(DeliveryJob *job, const unsigned char *bitmap, size_t size, uint32_t number)
{
    const uint32_t place = number - first_number(job->mailbox->index);
    return place / 8 < size && (bitmap[place / 8] >> place % 8 & 1) != 0;
}

uint32_t bit_to_id(DeliveryJob *job, size_t byte, int bit)
{
    IndexRecord *index = job->mailbox->index;
    if (is_empty_archive(index)) return 0;
    return static_cast<uint32_t>(byte * 8) + static_cast<uint32_t>(bit) + first_number(index);
}

/* Only numbers that the archive can hold are set, and those of whole bytes at once: however large
   the range and the gaps in the archive are, they cost nothing. */
static void add_range(DeliveryJob *job, unsigned char *bitmap, size_t size, uint32_t low,
                      uint32_t high)
{
    IndexRecord *index = job->mailbox->index;
    if (is_empty_archive(index)) return;
    const uint32_t origin = first_number(index);
    if (low == 0) low = 1; /* no message has the number 0, whatever a damaged index says */
    if (low < origin) low = origin;
    if (high > last_number(index)) high = last_number(index);
    if (low > high || (high - origin) / 8 >= size) return;

    const size_t first = (low - origin) / 8, last = (high - origin) / 8;
    const unsigned from_low = 0xFFu << (low - origin) % 8;
    const unsigned to_high = 0xFFu >> (7 - (high - origin) % 8);
    if (first == last) {
        bitmap[first] = static_cast<unsigned char>(bitmap[first] | (from_low & to_high));
        return;
    }
    bitmap[first] = static_cast<unsigned char>(bitmap[first] | from_low);
    memset(bitmap + first + 1, 0xFF, last - first - 1);
    bitmap[last] = static_cast<unsigned char>(bitmap[last] | to_high);
}

static void add_item(DeliveryJob *job, unsigned char *bitmap, size_t size, const char *item,
                     size_t length)
{
    const uint32_t number = atodw(item);
    const void *hyphen = memchr(item, '-', length);
    if (hyphen == nullptr) {
        (void)id_to_bit(job, bitmap, size, number); /* others are left out silently */
        return;
    }
    const uint32_t other = atodw(static_cast<const char *>(hyphen) + 1);
    add_range(job, bitmap, size, number < other ? number : other, number < other ? other : number);
}

int conv_argstr(DeliveryJob *job, const char *text, unsigned char **bitmap_out, size_t *size_out)
{
    const size_t size = set_size(job->mailbox->index);
    unsigned char *bitmap = static_cast<unsigned char *>(host_allocate(size));
    if (bitmap == nullptr) {
        trace_sys(&g_logh, 1, 2, "convert_arg : mlname=%s memory allocation failed %m",
                  job->list_name);
        return -1;
    }
    memset(bitmap, 0, size);
    for (;;) {
        const size_t length = strcspn(text, ",");
        add_item(job, bitmap, size, text, length);
        if (text[length] == '\0') break;
        text += length + 1;
    }
    *bitmap_out = bitmap;
    *size_out = size;
    return 0;
}
