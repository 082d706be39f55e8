/* The outcome table and its two writing rules. */
#include "module/outcome.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "module/guards.h"
#include "module/tcb.h"

/* KEPT: misspellings, doubled blanks, the missing bracket in 520 and the blank after the line end
   of 505 are what hosts match on.  Test: OutcomeText.TheWholeTableIsAsPublished */
const Outcome outcome_table[] = {
    {451, OutcomeRule::always, "451 file lock time out [ml=%s %03d]\n"},
    {470, OutcomeRule::always, "470 mkdir %s"},
    {472, OutcomeRule::always, "472 copy newfile to oldfile %s"},
    {473, OutcomeRule::always, "473 coppy newfile to orgfile %s"},
    {474, OutcomeRule::always, "474 f_recover disk full %s"},
    {475, OutcomeRule::always, "475 f_reover disk full %s"},
    {480, OutcomeRule::always, "480 fputs disk full [ml=%s]"},
    {501, OutcomeRule::always, "501 argument error [ac=%d] %03d\n"},
    {502, OutcomeRule::always, "502 file lock time out [ml=%s] %03d\n"},
    {503, OutcomeRule::if_empty, "503 check directory fail [ml=%s] %s %03d\n"},
    {505, OutcomeRule::if_empty, "505 get_newid fail [ml=%s] %s %03d\n "},
    {506, OutcomeRule::if_empty, "506 f_open fail [ml=%s] fn=%s %s %03d\n"},
    {508, OutcomeRule::if_empty, "508 fopen [ml=%s] fn=%s %s %03d\n"},
    {509, OutcomeRule::always, "509 char/line too long (header) [ml=%s] strlen=%d %03d\n"},
    {510, OutcomeRule::always, "510 loop detected (X-ML-Name: %s) %03d\n"},
    {511, OutcomeRule::if_empty, "511 mail_access fail [ml=%s] %03d\n"},
    {512, OutcomeRule::always, "512 add header fail [ml=%s] %03d\n"},
    {513, OutcomeRule::always, "513 fputs [ml=%s] fn=%s %s %03d\n"},
    {514, OutcomeRule::always, "514 add header (subject) fail [ml=%s] %03d\n"},
    {515, OutcomeRule::always, "515 fputs [ml=%s] fn=%s %s %03d\n"},
    {516, OutcomeRule::always, "516 fputs [ml=%s] fn=%s %s %03d\n"},
    {517, OutcomeRule::if_empty, "517 insert banner(top) fail [ml=%s] %03d\n"},
    {518, OutcomeRule::if_empty, "518 header procedure fail [ml=%s] %03d\n"},
    {519, OutcomeRule::always, "519 fputs [ml=%s] fn=%s %s %03d\n"},
    {520, OutcomeRule::always, "520 fputs [ml=%s fn=%s %s %03d\n"},
    {521, OutcomeRule::if_empty, "521  mail_access2 fail [ml=%s] %03d\n"},
    {522, OutcomeRule::always, "522 char/line too long (command) [ml=%s] strlen=%d %03d\n"},
    {523, OutcomeRule::if_empty, "523 command procedure fail [ml=%s] %03d\n"},
    {524, OutcomeRule::always, "524 fputs [ml=%s] fn=%s %s %03d\n"},
    {525, OutcomeRule::always, "525 fgets [ml=%s] %s %03d\n"},
    {526, OutcomeRule::if_empty, "526 insert banner(bottom) fail [ml=%s] %03d\n"},
    {527, OutcomeRule::always, "527 nothing command fail [ml=%s] %03d\n"},
    {528, OutcomeRule::always, "528 input error (no text) [ml=%s] %03d\n"},
    {529, OutcomeRule::if_empty, "529 nothing command fail [ml=%s] %03d\n"},
    {530, OutcomeRule::if_empty, "530 create mldeny fail [ml=%s] %03d\n"},
    {531, OutcomeRule::if_empty, "531  mailfile fail [ml=%s] %03d\n"},
    {532, OutcomeRule::if_empty, "532 set dgtstat fail [ml=%s] %03d\n"},
    {534, OutcomeRule::if_empty, "534 can't deliver mbox [ml=%s] %03d\n"},
    {535, OutcomeRule::if_empty, "535 can't update newno [ml=%s] %03d\n"},
    {536, OutcomeRule::if_empty, "536 can't move [ml=%s] %s [%s %s] %03d\n"},
    {537, OutcomeRule::if_empty, "537 mailfile fail (ex_tempfail) [ml=%s] %03d\n"},
    {538, OutcomeRule::if_empty, "538 Max message size over (%dKB) [ml=%s] %03d\n"},
};
const size_t outcome_count = sizeof(outcome_table) / sizeof(outcome_table[0]);

static const Outcome *find_outcome(int code)
{
    for (const Outcome &row : outcome_table)
        if (row.code == code) return &row;
    return nullptr;
}

/* The formatter's limit: one byte more than the text may have.  510 alone has the whole buffer. */
static size_t text_limit(int code)
{
    return code == 510 ? MLIST_REPLY_TEXT_SIZE : MLIST_REPLY_TEXT_SIZE - 1;
}

void put_outcome(int code, ...)
{
    const Outcome *row = find_outcome(code);
    char *reply = thread_context()->request->reply_text;
    if (row == nullptr || reply == nullptr) return;
    if (row->rule == OutcomeRule::if_empty && reply[0] != '\0') return;

    KeepErrno keep;
    va_list arguments;
    va_start(arguments, code);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(reply, text_limit(code), row->text, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    reply[MLIST_REPLY_TEXT_SIZE - 1] = '\0';
}

void tmperr_put(DeliveryJob job)
{
    put_outcome(480, job.list_name);
    setrc_tempfail();
}

const char *error_text(int error, char *buffer128)
{
    const char *text = strerror_r(error, buffer128, 128);
    if (text != buffer128) {
        strncpy(buffer128, text, 127);
        buffer128[127] = '\0';
    }
    return buffer128;
}
