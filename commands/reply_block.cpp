/* The opening of a reply: header, MIME lines and the first block of text, by kind and variant. */
#include <stdio.h>
#include <string.h>

#include "commands/cmd.h"
#include "commands/cmd_args.h"
#include "commands/reply_file.h"
#include "store/str.h"

#define SHOWN_LIST_SIZE 64

enum class Head {
    command, /* make_cmdrpy_header() with the kind's word */
    digest,
    rejected, /* with the rejected text in the word's place */
    nothing   /* with "(nothing)" there */
};

/* What stands in the block's places, in order. */
enum class Fill {
    word,          /* the command's word */
    word_and_text, /* word, text */
    word_and_list, /* word, text as a short list */
    list,          /* text as a short list */
    confirm,       /* word three times, then the id */
    text,
    none
};

struct Opening {
    Head head;
    bool mime; /* MIME header and the head of a text part */
    Fill fill;
    const char *block;
};

static const Opening inactive = {
    Head::command, false, Fill::word,
    "\r\nML Command Reply:\r\n\r\n>>> %s\r\nInactive Command\r\n-\r\n"};
static const Opening denied = {Head::command, false, Fill::word,
                               "\r\nML Command Reply:\r\n\r\n>>> %s\r\nDenied Command\r\n-\r\n"};
/* KEPT: the bare LF behind "request.", which its counterpart for leaving does not have.
   Test: ReplyGolden.EveryKindAndVariant */
static const Opening confirm_join = {
    Head::command, false, Fill::confirm,
    "\r\nML Command Reply:\r\n\r\n>>> %s\r\n"
    "Please send next command to confirm your %s request.\n"
    "So, you can be added to MailingList.\r\n\r\n# %s %s\r\n-\r\n"};
static const Opening confirm_leave = {
    Head::command, false, Fill::confirm,
    "\r\nML Command Reply:\r\n\r\n>>> %s\r\n"
    "Please send next command to confirm your %s request.\r\n"
    "If confirmed, you are removed from MailingList.\r\n\r\n# %s %s\r\n-\r\n"};
static const Opening messages = {Head::command, true, Fill::word_and_list,
                                 "\r\nML Command Reply:\r\n\r\n>>> %s %s\r\nSucceeded\r\n-\r\n"};
static const Opening summary = {Head::command, false, Fill::word_and_text,
                                "\r\nML Command Reply:\r\n\r\n>>> %s %s\r\nSucceeded\r\n-\r\n"};
static const Opening digest = {Head::digest, true, Fill::list,
                               "\r\nDigest Mails:\r\n\r\n>>> %s\r\n-\r\n"};
static const Opening succeeded = {Head::command, false, Fill::word,
                                  "\r\nML Command Reply:\r\n\r\n>>> %s\r\nSucceeded\r\n-\r\n"};
static const Opening failed_argument = {
    Head::command, false, Fill::word_and_text,
    "\r\nML Command Reply:\r\n\r\n>>> %s %s\r\nFailed\r\n-\r\n"};
/* KEPT: the bare LF behind the rejected text.  Test: ReplyGolden.EveryKindAndVariant */
static const Opening invalid = {Head::rejected, false, Fill::text,
                                "\r\nML Command Reply:\r\n\r\n>>> %s\nInvalid Command\r\n-\r\n"};
/* KEPT: the argument that is not there shows as "(null)".  Test: ReplyGolden.EveryKindAndVariant */
static const Opening nothing = {
    Head::nothing, false, Fill::none,
    "\r\nML Command Reply:\r\n\r\n>>> (null)(nothing)\r\nNot Found\r\n-\r\n"};
static const Opening failed = {Head::command, false, Fill::word,
                               "\r\nML Command Reply:\r\n\r\n>>> %s\r\nFailed\r\n-\r\n"};

#define ANY_KIND (-1)

/* The first row that matches counts. */
static const struct {
    int kind, variant;
    const Opening &opening;
} openings[] = {
    {ANY_KIND, VARIANT_INACTIVE, inactive},
    {ANY_KIND, VARIANT_DENIED, denied},
    {COMMAND_SUBSCRIBE, VARIANT_CONFIRM, confirm_join},
    {ANY_KIND, VARIANT_CONFIRM, confirm_leave},
    {COMMAND_GET, VARIANT_NORMAL, messages},
    {COMMAND_SUMMARY, VARIANT_NORMAL, summary},
    {COMMAND_PUSH, VARIANT_NORMAL, digest},
    {ANY_KIND, VARIANT_NORMAL, succeeded},
    {COMMAND_SUMMARY, VARIANT_ERROR, failed_argument},
    {COMMAND_GET, VARIANT_ERROR, failed_argument},
    {REPLY_INVALID_COMMAND, VARIANT_ERROR, invalid},
    {REPLY_NO_COMMAND, VARIANT_ERROR, nothing},
    {ANY_KIND, VARIANT_ERROR, failed},
};

static const Opening &find_opening(int kind, int variant)
{
    for (const auto &row : openings)
        if ((row.kind == kind || row.kind == ANY_KIND) && row.variant == variant)
            return row.opening;
    return failed;
}

static void build_head(DeliveryJob *job, const Opening &opening, const char *word, const char *text,
                       char *out)
{
    switch (opening.head) {
    case Head::digest:
        return make_dgtrpy_header(job, out, LINE_SIZE);
    case Head::rejected:
        return make_cmdrpy_header(job, text, out, LINE_SIZE);
    case Head::nothing:
        return make_cmdrpy_header(job, "(nothing)", out, LINE_SIZE);
    case Head::command:
        return make_cmdrpy_header(job, word, out, LINE_SIZE);
    }
}

static void build_block(const Opening &opening, const char *word, const char *text, char *out,
                        size_t size)
{
    char shown[SHOWN_LIST_SIZE];
    const char *list = short_argstr(text, shown, sizeof(shown));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    switch (opening.fill) {
    case Fill::word:
        snprintf(out, size, opening.block, word);
        break;
    case Fill::word_and_text:
        snprintf(out, size, opening.block, word, text);
        break;
    case Fill::word_and_list:
        snprintf(out, size, opening.block, word, list);
        break;
    case Fill::list:
        snprintf(out, size, opening.block, list);
        break;
    case Fill::confirm:
        snprintf(out, size, opening.block, word, word, word, text);
        break;
    case Fill::text:
        snprintf(out, size, opening.block, text);
        break;
    case Fill::none:
        snprintf(out, size, "%s", opening.block);
        break;
    }
#pragma GCC diagnostic pop
}

/* The header and MIME lines are at most three times LINE_SIZE, a block's argument at most a command
   line or a number list: COMPOSE_SIZE holds them all but for a digest's longest list, which
   is then cut. */
void build_opening(DeliveryJob *job, int kind, const char *text, int variant, char *out,
                   size_t size)
{
    const Opening &opening = find_opening(kind, variant);
    const char *word = command_word(kind);
    if (text == nullptr) text = "";
    char head[LINE_SIZE] = "", mime[LINE_SIZE] = "", part[LINE_SIZE] = "";
    build_head(job, opening, word, text, head);
    if (opening.mime) {
        make_cmdrpy_mimeheader(job, mime, sizeof(mime));
        make_cmdrpy_mimetext(job, part, sizeof(part));
    }
    const int used = snprintf(out, size, "%s%s%s", head, mime, part);
    build_block(opening, word, text, out + used, size - static_cast<size_t>(used));
}
