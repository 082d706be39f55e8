/* Address lists. */
#include <string.h>

#include "archive/mime.h"
#include "module/sink.h"
#include "store/str.h"

/* -- walk -- */

void start_addresses(AddressCursor *cursor, char *addresses)
{
    cursor->next = addresses;
}

/* The comma that ends the address, or the end of the text. */
static char *end_of_address(char *text)
{
    bool quoted = false;
    unsigned comments = 0;
    for (; *text != '\0'; ++text) {
        if (*text == '\\' && text[1] != '\0')
            ++text;
        else if (*text == '"' && comments == 0)
            quoted = !quoted;
        else if (quoted)
            continue;
        else if (*text == '(')
            ++comments;
        else if (*text == ')' && comments > 0)
            --comments;
        else if (*text == ',' && comments == 0)
            break;
    }
    return text;
}

char *next_address(AddressCursor *cursor)
{
    if (cursor->next == nullptr) return nullptr;
    char *address = skip_space_tab(cursor->next);
    cursor->next = nullptr;
    if (*address == '\0') return nullptr;
    char *end = end_of_address(address);
    if (*end != '\0') cursor->next = end + 1;
    *end = '\0';
    return address;
}

static thread_local AddressCursor address_walk;

char *list_get1addr(char *addresses)
{
    if (addresses != nullptr) start_addresses(&address_walk, addresses);
    return next_address(&address_walk);
}

/* -- one address -- */

/* Removes backslashes up to the "<" or "(" that ends what comes first, and cuts the text there; one
   blank in front goes too.  The character found, with the text behind it; '\0' when there is
   none. */
static char cut_first_half(char *text, char **behind_out)
{
    char *const start = text;
    char *to = text;
    for (bool quoted = false; *text != '\0'; ++text) {
        if (*text == '\\' && text[1] != '\0') {
            *to++ = *++text;
            continue;
        }
        if (*text == '"') quoted = !quoted;
        if (!quoted && (*text == '<' || *text == '(')) break;
        *to++ = *text;
    }
    const char found = *text;
    *behind_out = found != '\0' ? text + 1 : text;
    if (found != '\0' && to > start && to[-1] == ' ') --to;
    *to = '\0';
    return found;
}

static void print_address(char *text)
{
    char *second = nullptr;
    switch (cut_first_half(text, &second)) {
    case '<':
        second[strcspn(second, ">")] = '\0';
        return list_print1addr(text, second);
    case '(':
        second[strcspn(second, ")")] = '\0';
        return list_print1addr(second, text);
    default:
        return list_print1addr(nullptr, text);
    }
}

void list_parse_addr(char *addresses)
{
    AddressCursor cursor;
    start_addresses(&cursor, addresses);
    while (char *address = next_address(&cursor))
        print_address(address);
}

void list_print1addr(const char *name, const char *address)
{
    size_t length = name != nullptr ? strlen(name) : 0;
    while (length > 0 && is_blank(static_cast<unsigned char>(name[length - 1])))
        --length;
    put_text("(");
    if (length > 0)
        print_string(name, length);
    else
        put_text("NIL");
    put_text(" NIL ");
    const size_t mailbox = strcspn(address, "@");
    print_string(address, mailbox);
    put_text(" ");
    if (address[mailbox] == '@')
        list_print_string(address + mailbox + 1);
    else
        put_text("NIL");
    put_text(")");
}
