#include "host/mlistd/start_check.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/text.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lists.h"

namespace
{

constexpr auto TIDY_PAUSE = std::chrono::hours(1);
constexpr time_t STALE_AGE = 24 * 3600;

/* The files that the module rewrites through side files. */
constexpr const char *rewritten_files[] = {"init",  "member",    "active",  "digest",
                                           "grant", "subscribe", "confirm", "dgtstat"};

/* A list's session with the module, for one list at a time of this thread. */
using SessionHandle = std::unique_ptr<ListSession, decltype(&mlist_session_close)>;

SessionHandle open_session(const ModuleLibrary &module, const ListAddress &list)
{
    ListSession *session = module.session_open(list.list.c_str(), list.domain.c_str());
    if (session == nullptr)
        log_error(LOG_LIST_UNUSABLE, system_error(list.name() + ": cannot be locked").text);
    return {session, module.session_close};
}

/* Whole paths; a directory that cannot be read has none. */
std::vector<std::filesystem::path> files_in(const std::string &directory)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    std::error_code failure;
    for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
         entry.increment(failure))
        files.push_back(entry->path());
    return files;
}

bool older_than_a_day(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           time(nullptr) - status.st_mtime > STALE_AGE;
}

/* Where deliveries have their work files, and how those begin; a thread's number follows. */
constexpr struct {
    const char *directory, *prefix;
} work_files[] = {{"/jnl", "j."}, {"/msg", "cmdrpy."}, {"/msg", "mldeny."}};

/* Those of deliveries that were denied, failed or killed; a thread's number seldom comes again to
   overwrite them. */
std::vector<std::string> stale_work_files(const std::string &control)
{
    std::vector<std::string> stale;
    for (const auto &[directory, prefix] : work_files)
        for (const auto &file : files_in(control + directory)) {
            const std::string name = file.filename().string();
            if (name.starts_with(prefix) && parse_number(name.substr(strlen(prefix))) &&
                older_than_a_day(file))
                stale.push_back(file);
        }
    return stale;
}

/* The caller holds the list's lock: a work file that is being written is never old then. */
void remove_stale(const std::string &control)
{
    for (const std::string &path : stale_work_files(control))
        if (unlink(path.c_str()) == 0)
            log_notice(LOG_JOURNAL_REMOVED, path + ": removed, unused for a day");
}

/* A journal that has its number was archived but not distributed. */
void report_undistributed(const ListAddress &list, const std::string &journal)
{
    for (const auto &file : files_in(journal))
        if (parse_number(file.filename().string()))
            log_warning(LOG_JOURNAL_LEFT,
                        list.name() + ": archived but not distributed: " + file.string());
}

/* A file that is not there is no fault: without "active" postings are archived and go to nobody. */
bool derive(const ModuleLibrary &module, const ListAddress &list, ListSession *session,
            const char *type)
{
    const int derived = module.derive(session, type);
    if (derived > 0)
        log_notice(LOG_LIST_REPAIRED, list.name() + ": \"" + type + "\" made anew from the roster");
    if (derived < 0 && errno == ENOENT) return true;
    if (derived < 0)
        log_error(LOG_LIST_UNUSABLE,
                  list.name() + ": \"" + type + "\" cannot be made from the roster");
    return derived >= 0;
}

/* Whether mail may be delivered; a file that cannot be recovered the module refuses itself. */
bool check_list(const ModuleHost &host, const ListAddress &list)
{
    const SessionHandle session = open_session(host.module, list);
    if (session == nullptr) return false;
    const std::string directory = control_path(host.settings, list.list, list.domain);
    for (const char *name : rewritten_files)
        if (host.module.recover((directory + "/" + name).c_str()) != 0) {
            host.placeholders.restore(); /* the next file's failure may close the same number */
            log_error(LOG_LIST_UNUSABLE, list.name() + ": \"" + name + "\" cannot be recovered");
        }
    bool in_order = derive(host.module, list, session.get(), "active");
    in_order &= derive(host.module, list, session.get(), "digest");
    remove_stale(directory);
    report_undistributed(list, directory + "/jnl");
    return in_order;
}

/* Takes the lock only where there is something to remove. */
void tidy_list(const ModuleHost &host, const ListAddress &list)
{
    const std::string directory = control_path(host.settings, list.list, list.domain);
    if (stale_work_files(directory).empty()) return;
    const SessionHandle session = open_session(host.module, list); /* reads the settings */
    host.placeholders.restore();
    if (session != nullptr) remove_stale(directory);
}

} // namespace

void CheckedLists::check_all()
{
    for (const ListAddress &list : all_lists(host_.settings))
        (void)in_order(list);
}

bool CheckedLists::in_order(const ListAddress &list)
{
    {
        const std::lock_guard lock(mutex_);
        if (in_order_.contains(list.name())) return true;
    }
    const bool well = check_list(host_, list);
    host_.placeholders.restore();
    if (!well) return false;
    const std::lock_guard lock(mutex_);
    in_order_.insert(list.name());
    return true;
}

void CheckedLists::doubt(const ListAddress &list)
{
    const std::lock_guard lock(mutex_);
    in_order_.erase(list.name());
}

void remove_unfinished_mail(const std::string &directory)
{
    for (const auto &file : files_in(directory))
        unlink(file.c_str());
}

Housekeeper::Housekeeper(const ModuleHost &host) : host_(host), thread_([this] { run(); }) {}

Housekeeper::~Housekeeper()
{
    {
        const std::lock_guard lock(mutex_);
        end_ = true;
    }
    ending_.notify_all();
    thread_.join();
}

void Housekeeper::run()
{
    host_.module.set_output(discarding_stream());
    std::unique_lock lock(mutex_);
    while (!ending_.wait_for(lock, TIDY_PAUSE, [this] { return end_; })) {
        lock.unlock();
        for (const ListAddress &list : all_lists(host_.settings))
            tidy_list(host_, list);
        lock.lock();
    }
}
