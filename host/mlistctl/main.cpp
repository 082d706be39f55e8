/* mlistctl: the operator's command line. */
#include <CLI/CLI.hpp>
#include <cstdio>

#include "host/base/placeholders.h"
#include "host/base/program.h"
#include "host/mlistctl/environment.h"
#include "host/mlistctl/verbs.h"

namespace
{

enum class Takes { list, optional_list, list_and_words, status_list_and_words, message };
enum class Works { on_the_lists, through_the_daemon };

struct Verb {
    const char *group; /* "" for a verb that stands alone */
    const char *name;
    Takes takes;
    Works works;
    int (*run)(const Arguments &arguments, const Settings &settings, Output &output);
    const char *help;
};

constexpr Verb verbs[] = {
    {"list", "create", Takes::list, Works::on_the_lists, list_create,
     "Make a list that can be posted to at once"},
    {"list", "show", Takes::optional_list, Works::on_the_lists, list_show,
     "Show settings, members and archive of a list, or of all"},
    {"list", "check", Takes::optional_list, Works::on_the_lists, list_check,
     "Look for problems in a list's files, or in all lists'"},
    {"member", "add", Takes::list_and_words, Works::on_the_lists, member_add, "Add members"},
    {"member", "remove", Takes::list_and_words, Works::on_the_lists, member_remove,
     "Remove members"},
    {"member", "set", Takes::status_list_and_words, Works::on_the_lists, member_set,
     "Give members every posting (on), none (off) or digests"},
    {"member", "list", Takes::list, Works::on_the_lists, member_list,
     "Print the members, one a line, with their status"},
    {"grant", "add", Takes::list_and_words, Works::on_the_lists, grant_add,
     "Add addresses that may post; where there are any, nobody else may"},
    {"grant", "remove", Takes::list_and_words, Works::on_the_lists, grant_remove,
     "Remove addresses that may post; without any, every member may"},
    {"grant", "list", Takes::list, Works::on_the_lists, grant_show,
     "Print the addresses that may post"},
    {"subscribe-domain", "add", Takes::list_and_words, Works::on_the_lists, domain_add,
     "Add domains that may subscribe, \"*.example.jp\" for all below one"},
    {"subscribe-domain", "remove", Takes::list_and_words, Works::on_the_lists, domain_remove,
     "Remove domains that may subscribe; without any, everybody may"},
    {"subscribe-domain", "list", Takes::list, Works::on_the_lists, domain_show,
     "Print the domains that may subscribe"},
    {"confirm", "list", Takes::list, Works::on_the_lists, confirm_list,
     "Print who has been asked to confirm and has not yet"},
    {"confirm", "clean", Takes::list, Works::on_the_lists, confirm_clean,
     "Remove confirmations that have expired"},
    {"", "push", Takes::list, Works::on_the_lists, push,
     "Have the running mlistd send the digest now"},
    {"", "post", Takes::message, Works::through_the_daemon, post,
     "Hand a message to the running mlistd"},
};

constexpr const char *exit_help =
    "Exit status: 0 done; 1 a check found problems, or an address was no member; 2 wrong command "
    "line;\n65 unusable address or message; 66 no such file; 67 no such list; 69 refused; 71 "
    "system error;\n73 exists already; 74 input or output error; 75 try again later; 77 "
    "permission denied;\n78 configuration error.";

void add_operands(CLI::App &command, const Verb &verb, Arguments &arguments)
{
    if (verb.takes == Takes::message) {
        command.add_option("FILE", arguments.file, "The message; \"-\" reads standard input")
            ->required();
        command.add_option("--to", arguments.list, "The list's address")->required();
        command.add_option("--from", arguments.from,
                           "Envelope sender; else the address of the message's From:");
        return;
    }
    if (verb.takes == Takes::status_list_and_words)
        command.add_option("STATUS", arguments.status, "on, off or digest")
            ->required()
            ->check(CLI::IsMember({"on", "off", "digest"}));
    auto *list = command.add_option("LIST", arguments.list, "LIST@DOMAIN");
    if (verb.takes != Takes::optional_list) list->required();
    if (verb.takes == Takes::list_and_words || verb.takes == Takes::status_list_and_words) {
        const bool domains = std::string_view(verb.group) == "subscribe-domain";
        command
            .add_option(domains ? "DOMAIN" : "ADDRESS", arguments.words,
                        "\"-\" reads them from standard input, one a line")
            ->required();
    }
}

void add_special_options(CLI::App &command, const Verb &verb, Arguments &arguments)
{
    if (verb.run == list_create)
        command.add_option("--set", arguments.set, "KEY=VALUE: a setting other than the usual")
            ->take_all();
    if (verb.run == list_check) {
        command.add_flag("--repair", arguments.repair,
                         "Make missing files, write \"active\" and \"digest\" anew");
        command.add_flag("--archive", arguments.repair_archive,
                         "With --repair: also make a damaged archive index anew");
    }
}

/* Where the group's command is; made with its first verb. */
CLI::App &group_of(CLI::App &app, const Verb &verb)
{
    if (verb.group[0] == '\0') return app;
    for (CLI::App *group : app.get_subcommands([](const CLI::App *) { return true; }))
        if (group->get_name() == verb.group) return *group;
    CLI::App *group = app.add_subcommand(verb.group, std::string("Verbs on ") + verb.group + "s");
    group->require_subcommand(1);
    group->fallthrough();
    return *group;
}

void add_verbs(CLI::App &app, Arguments &arguments, const Verb *&chosen)
{
    for (const Verb &verb : verbs) {
        CLI::App *command = group_of(app, verb).add_subcommand(verb.name, verb.help);
        command->fallthrough(); /* --json and --config may follow the verb */
        add_operands(*command, verb, arguments);
        add_special_options(*command, verb, arguments);
        command->callback([&chosen, &verb] { chosen = &verb; });
    }
}

int run_verb(const Verb &verb, const Arguments &arguments, Output &output)
{
    Settings settings = read_environment(arguments.config);
    if (verb.works == Works::on_the_lists) {
        become_data_owner(settings);
        start_module(settings, arguments.verbose);
    }
    int status = verb.run(arguments, settings, output);
    Output::flush();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    begin_program();
    auto placeholders = Placeholders::take(); /* before anything else is opened */

    CLI::App app("Looks after the lists of mlistd.", "mlistctl");
    Arguments arguments;
    const Verb *chosen = nullptr;
    app.require_subcommand(1);
    app.footer(exit_help);
    app.add_flag("--json", arguments.json, "Answer in JSON");
    app.add_flag("-v,--verbose", arguments.verbose, "Show the module's log lines");
    app.add_option("-c,--config", arguments.config,
                   "The daemon's configuration file (usually /etc/mlistd/mlistd.toml)");
    add_verbs(app, arguments, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? CTL_OK : CTL_USAGE;
    }

    Output output(arguments.json);
    try {
        if (!placeholders) throw Failure{CTL_SYSTEM, placeholders.error().text, ""};
        return run_verb(*chosen, arguments, output);
    } catch (const Failure &failure) {
        output.failure(failure);
        return failure.exit_status;
    } catch (const std::exception &error) {
        output.failure({CTL_SYSTEM, error.what(), ""});
        return CTL_SYSTEM;
    }
}
