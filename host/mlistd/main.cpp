/* mlistd: takes mail for lists, runs the module on it, sends what the module submits. */
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sysexits.h>

#include "host/base/digest_files.h"
#include "host/base/program.h"
#include "host/mlistd/digest/clock.h"
#include "host/mlistd/digest/lists.h"
#include "host/mlistd/edge.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lists.h"
#include "host/mlistd/net/listener.h"
#include "host/mlistd/options.h"
#include "host/mlistd/process.h"
#include "host/mlistd/spool/runner.h"
#include "host/mlistd/spool/target.h"
#include "host/mlistd/start_check.h"
#include "ldapuse.h"
#include "mlog.h"

namespace
{

/* Ends the program from anywhere before it serves; the text says why. */
struct StartFailure {
    int exit_code;
    std::string text;
};

void require(const Result<void> &result, int exit_code)
{
    if (!result) throw StartFailure{exit_code, result.error().text};
}

template <typename T> T require(Result<T> result, int exit_code)
{
    if (!result) throw StartFailure{exit_code, result.error().text};
    return std::move(*result);
}

Settings load_settings(const Options &options)
{
    return require(read_settings_or_usual(options.config_file), EX_CONFIG);
}

void open_logs(const Settings &settings)
{
    if (mlog_set_target(settings.log_target.c_str()) != 0)
        throw StartFailure{EX_CONFIG, system_error("log.target: " + settings.log_target).text};
    set_host_log_level(static_cast<int>(settings.log_level));
}

/* Nothing of the module may wait for whoever reads our standard output. */
void silence_stdout()
{
    const Fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    fflush(stdout);
    if (null) dup2(null.get(), STDOUT_FILENO);
}

ModuleLibrary start_module(const Settings &settings)
{
    kyt_conf_set_directory(settings.config_directory.c_str());
    const ModuleLibrary module = require(load_module(module_file(settings)), EX_OSFILE);
    require(initialize_module(module, settings), EX_OSFILE);
    return module;
}

std::unique_ptr<Spool> open_spool(const Settings &settings)
{
    SpoolSettings spool_settings;
    spool_settings.retry_min = settings.relay_retry_min;
    spool_settings.retry_max = settings.relay_retry_max;
    spool_settings.maximum_age = settings.relay_maximum_age;
    spool_settings.log = [](int level, const std::string &text) {
        log_line(level, LOG_QUEUE, text);
    };
    auto spool = Spool::open(settings.spool_directory, spool_settings);
    if (!spool && spool.error().code == EWOULDBLOCK)
        throw StartFailure{EX_TEMPFAIL,
                           settings.spool_directory + ": another mlistd is working on it"};
    return require(std::move(spool), EX_CANTCREAT);
}

/* The owners of "LIST@DOMAIN", for bounces. */
std::vector<std::string> owners_of_name(const Settings &settings, const std::string &name)
{
    const auto list = parse_list_name(name, settings.control_suffixes);
    return list ? owners_of(settings, *list) : std::vector<std::string>();
}

std::unique_ptr<Runner> make_runner(const Settings &settings, Spool &spool)
{
    const std::string name = host_name(settings);
    const TargetSettings target{settings.relay_target, settings.outbox_directory, name,
                                settings.relay_timeout};
    RunnerSettings runner;
    runner.workers = static_cast<unsigned>(settings.relay_workers);
    runner.fixups.hostname = name;
    runner.bounce.hostname = name;
    runner.bounce.owners_of = [&settings](const std::string &list) {
        return owners_of_name(settings, list);
    };
    return std::make_unique<Runner>(spool, require(make_transport_factory(target), EX_CONFIG),
                                    runner);
}

LmtpConfig lmtp_config(const Settings &settings)
{
    return {.hostname = host_name(settings),
            .control_suffixes = settings.control_suffixes,
            .in_directory = settings.spool_directory + "/in",
            .recipients = static_cast<size_t>(settings.lmtp_recipients),
            .message_size = settings.lmtp_message_size,
            .timeout_ms = settings.lmtp_timeout * 1000,
            .data_timeout_ms = settings.lmtp_data_timeout * 1000};
}

void open_sockets(const Settings &settings, Listener &listener)
{
    for (Fd &socket : require(passed_sockets(), EX_OSERR))
        listener.adopt(std::move(socket));
    if (listener.listens()) return; /* the service manager decides where */
    for (const std::string &text : settings.lmtp_listen) {
        const auto endpoint = parse_endpoint(text); /* checked with the settings */
        require(listener.listen_on(*endpoint, static_cast<mode_t>(settings.lmtp_socket_mode)),
                EX_OSERR);
        log_notice(LOG_START, "lmtp: listening on " + text);
    }
}

void wait_for_end()
{
    while (wait_for_signal() == SIGHUP) {
        if (mlog_reopen() != 0) log_error(LOG_REOPENED, system_error("log").text);
        log_notice(LOG_REOPENED, "log opened anew");
    }
}

int serve(const Settings &settings, const Placeholders &placeholders)
{
    /* the process: nothing it holds is the module's to close, and nobody's who is not meant to */
    block_signals();
    raise_descriptor_limit(settings);
    require(become_user(settings), EX_NOUSER);
    open_logs(settings);
    require(make_data_directories(settings), EX_CANTCREAT);
    require(make_digest_directories(settings), EX_CANTCREAT);
    silence_stdout();

    /* the parts, from what they rest on upwards */
    const ModuleLibrary module = start_module(settings);
    const auto spool = open_spool(settings);
    const auto runner = make_runner(settings, *spool);
    const ModuleHost host{module, settings, placeholders,
                          [&spool](const std::string &file, const std::string &sender,
                                   std::span<const std::string> recipients,
                                   const std::string &list) {
                              return spool->submit(file, sender, recipients, list);
                          }};
    CheckedLists lists(host);
    Edge edge(host, lists);
    const LmtpConfig config = lmtp_config(settings);
    const Fd stop_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!stop_event) throw StartFailure{EX_OSERR, system_error("eventfd").text};
    SessionThreads sessions(
        {static_cast<size_t>(settings.lmtp_sessions),
         static_cast<size_t>(settings.lmtp_sessions_per_address)},
        [&](int socket, const std::string &peer) {
            LmtpSession(Stream(socket, stop_event.get()), config, edge, peer).run();
        });
    Listener listener(sessions);
    open_sockets(settings, listener);
    placeholders.restore();

    /* the lists are whole before the first mail comes */
    remove_unfinished_mail(config.in_directory);
    remove_unfinished_mail(settings.outbox_directory + "/.stage");
    lists.check_all();
    const Housekeeper housekeeper(host);

    runner->start();
    ModuleDigestLists digest_lists(host, edge);
    DigestRounds digest_rounds(settings, digest_lists);
    DigestClock digest_clock(digest_rounds);
    require(listener.start(), EX_OSERR);
    log_notice(LOG_START, "ready");
    notify_manager("READY=1");

    wait_for_end();

    /* no new mail; what has been received is delivered and answered; what is queued stays so */
    log_notice(LOG_STOP, "stopping");
    notify_manager("STOPPING=1");
    listener.stop();
    digest_clock.stop();
    eventfd_write(stop_event.get(), 1);
    sessions.end(settings.shutdown_grace * 1000);
    runner->stop();
    log_notice(LOG_STOP, "stopped");
    return EX_OK;
}

int run(int argc, char **argv)
{
    const Options options = parse_options(argc, argv);
    switch (options.action) {
    case Options::Action::usage_error:
        fputs(usage_text, stderr);
        return EX_USAGE;
    case Options::Action::help:
        fputs(usage_text, stdout);
        return EX_OK;
    case Options::Action::version:
        puts("mlistd " MLIST_VERSION);
        return EX_OK;
    case Options::Action::check_config:
        load_settings(options);
        return EX_OK;
    case Options::Action::print_config:
        fputs(print_settings(load_settings(options)).c_str(), stdout);
        return EX_OK;
    case Options::Action::serve:
        break;
    }
    begin_program();
    const Placeholders placeholders = require(Placeholders::take(), EX_OSERR);
    return serve(load_settings(options), placeholders);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const StartFailure &failure) {
        fprintf(stderr, "mlistd: %s\n", failure.text.c_str());
        return failure.exit_code;
    } catch (const std::exception &failure) {
        fprintf(stderr, "mlistd: %s\n", failure.what());
        return EX_SOFTWARE;
    }
}
