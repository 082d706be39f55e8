/* The FLAGS item: names of a flag word, as FETCH and the checks print them. */
#include <string.h>

#include "archive/mbx.h"
#include "module/sink.h"

struct FlagName {
    uint32_t bit;
    const char *name;
};

/* In the order of printing. */
static constexpr FlagName flag_names[] = {
    {MESSAGE_SEEN, "\\Seen"},       {MESSAGE_ANSWERED, "\\Answered"},
    {MESSAGE_FLAGGED, "\\Flagged"}, {MESSAGE_DELETED, "\\Deleted"},
    {MESSAGE_DRAFT, "\\Draft"},     {MESSAGE_RECENT, "\\Recent"},
    {MESSAGE_MDNSENT, "$MDNSent"},
};

static char *append_text(char *end, const char *text)
{
    const size_t length = strlen(text);
    memcpy(end, text, length + 1);
    return end + length;
}

const char *flags_item(char *out, uint32_t flags)
{
    char *end = append_text(out, "FLAGS (");
    if (flags & MESSAGE_VANISHED) flags = 0; /* there is nothing any more that could have flags */
    for (const FlagName &flag : flag_names) {
        if (!(flags & flag.bit)) continue;
        if (end[-1] != '(') end = append_text(end, " ");
        end = append_text(end, flag.name);
    }
    append_text(end, ")");
    return out;
}

void list_mbx_fetch_flags2(IndexRecord *index, int record)
{
    char item[FLAGS_ITEM_SIZE];
    out_printf("%s", flags_item(item, index[record].flags));
}
