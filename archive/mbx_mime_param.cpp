/* Parameters of a content type and of a disposition. */
#include <string.h>

#include "archive/mime.h"
#include "module/host_mem.h"
#include "module/sink.h"
#include "store/str.h"

const char *nextparam(const char *text)
{
    bool quoted = false;
    for (; *text != '\0'; ++text) {
        if (*text == '\\' && text[1] != '\0')
            ++text;
        else if (*text == '"')
            quoted = !quoted;
        else if (*text == ';' && !quoted)
            return text;
    }
    return nullptr;
}

namespace
{
/* The parameters as they are, or with those of RFC 2231 joined. */
class JoinedParameters
{
  public:
    explicit JoinedParameters(const char *text) : text_(text), joined_(join(text))
    {
        if (joined_.p != nullptr) text_ = joined_.p;
    }
    const char *text() const { return text_; }

  private:
    static char *join(const char *text)
    {
        const bool wanted = strstr(text, "*0=") != nullptr || strstr(text, "*0*=") != nullptr;
        return wanted ? rfc2231(text) : nullptr;
    }
    const char *text_;
    HostPtr<char> joined_;
};

struct Parameter {
    const char *name, *value, *end;
};
} // namespace

/* Takes the parameter at the text apart; false when it is none. */
static bool split_parameter(const char *text, Parameter *parameter_out)
{
    const char *semicolon = nextparam(text);
    const char *end = semicolon != nullptr ? semicolon : text + strlen(text);
    const void *equals = memchr(text, '=', static_cast<size_t>(end - text));
    if (equals == nullptr) return false;
    *parameter_out = {text, static_cast<const char *>(equals) + 1, end};
    return true;
}

static void print_parameter(const Parameter &parameter)
{
    print_string(parameter.name, static_cast<size_t>(parameter.value - 1 - parameter.name));
    put_text(" ");
    print_string(parameter.value, static_cast<size_t>(parameter.end - parameter.value));
}

void list_parse_cparam(const char *parameters)
{
    if (parameters == nullptr) return put_text("NIL ");
    const JoinedParameters joined(parameters);
    if (strchr(joined.text(), '=') == nullptr) return put_text("NIL ");
    put_text("(");
    const char *text = joined.text();
    Parameter parameter;
    for (bool first = true; split_parameter(text, &parameter); first = false) {
        if (!first) put_text(" ");
        print_parameter(parameter);
        if (*parameter.end == '\0') break;
        text = skip_space_tab(parameter.end + 1);
    }
    put_text(") ");
}

/* KEPT: only a disposition with a parameter is shown, and only its first one.
   Test: Disposition.ShowsTheFirstParameterOnly */
void list_parse_cdp(const char *disposition)
{
    if (disposition == nullptr) return put_text("NIL");
    const JoinedParameters joined(disposition);
    const char *text = joined.text();
    const char *semicolon = strchr(text, ';');
    Parameter parameter;
    if (semicolon == nullptr || !split_parameter(skip_space_tab(semicolon + 1), &parameter))
        return put_text("NIL");
    put_text("(");
    print_string(text, static_cast<size_t>(semicolon - text));
    put_text(" (");
    print_parameter(parameter);
    put_text("))");
}
