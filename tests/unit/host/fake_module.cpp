/* A module of a few lines: what it does depends on the list's name, so that the host can be driven
   into every answer without lists that really break.

     refuse        69 with reply text 510        machine   69 with reply text 534
     later         75                            memory    uses the allocator hard, then accepts
     slow          makes a file "begun" beside   digest    submits with a number list
                   "active", accepts when there
                   is one "go"
     mute          69 without a text             reply     submits to one named recipient
     others        submit the message to the list's "active" file, 0 or 75 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

#include "mlist/admin.h"
#include "mlist/mlist.h"

extern "C" {

char g_path_mlist[1024];
char g_mbox_list[1024];
ListSettings g_mlit;

static thread_local FILE *sink;

void mlist_set_output(FILE *stream)
{
    sink = stream;
}

FILE *mlist_get_output(void)
{
    return sink != nullptr ? sink : stdout;
}

int ModuleInitialize(ModuleRecord *record)
{
    record->interface_word = MLIST_INTERFACE_WORD;
    strcpy(record->module_name, "mlist");
    return 1;
}

static int answer(DeliveryRequest *request, int code, const char *text)
{
    snprintf(request->reply_text, MLIST_REPLY_TEXT_SIZE, "%s", text);
    return code;
}

static bool use_memory(DeliveryRequest *request)
{
    void *blocks[64];
    for (int round = 0; round < 1000; ++round) {
        for (size_t i = 0; i < 64; ++i) {
            blocks[i] = request->allocate(1 + i * 997);
            if (blocks[i] == nullptr) return false;
            memset(blocks[i], round, 1 + i * 997);
        }
        for (void *block : blocks)
            request->release(block);
    }
    return request->keep_text("kept") != nullptr;
}

static void wait_for_leave(const std::string &control)
{
    FILE *begun = fopen((control + "/begun").c_str(), "we");
    if (begun != nullptr) fclose(begun);
    while (access((control + "/go").c_str(), F_OK) != 0)
        usleep(1000);
}

int ModuleMain(DeliveryRequest *request)
{
    const std::string list = request->argument_vector[1];
    const std::string owner = "owner-" + list + "@" + request->domain;
    char result[MLIST_RESULT_TEXT_SIZE] = "";
    if (list == "refuse")
        return answer(request, 69, "510 loop detected (X-ML-Name: \r\x01x) 007\nmore");
    if (list == "machine") return answer(request, 69, "534 can't deliver mbox [ml=machine] 007\n");
    if (list == "mute") return 69;
    if (list == "later") return answer(request, 75, "480 fputs disk full [ml=later]");
    if (list == "memory") return use_memory(request) ? 0 : 69;
    if (list == "digest")
        return request->submit(request->message_file, owner.c_str(), nullptr, "1 2 3", result) ? 0
                                                                                               : 75;
    if (list == "reply") {
        const char *const recipients[] = {"someone@example.net", nullptr};
        return request->submit(request->message_file, owner.c_str(), recipients, nullptr, result)
                   ? 0
                   : 69;
    }
    const std::string control = std::string(g_path_mlist) + "/" + request->domain + "/" + list;
    if (list == "slow") wait_for_leave(control);
    const std::string active = control + "/active";
    if (!request->submit(request->message_file, owner.c_str(), nullptr, active.c_str(), result))
        return answer(request, 75, "537 mailfile fail (ex_tempfail)");
    snprintf(request->result_text, MLIST_RESULT_TEXT_SIZE, "%s", result);
    return 0;
}

/* Whether a list that has a lock is not locked now. */
static bool is_unlocked(const std::string &directory)
{
    const int lock = open((directory + "/lock").c_str(), O_RDWR | O_CLOEXEC);
    const bool unlocked = lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) == 0;
    if (lock >= 0) close(lock);
    return unlocked;
}

/* A file of the name with ".new" behind it stands for a rewrite cut short; without the lock it may
   as well be one under way. */
int f_recover(const char *path)
{
    const std::string side = std::string(path) + ".new";
    if (access(side.c_str(), F_OK) != 0) return 0;
    if (is_unlocked(side.substr(0, side.rfind('/')))) return -1;
    return rename(side.c_str(), path);
}

/* The file is the minute and nothing else. */
int get_mlini(const char *list, const char *domain, ListSettings *settings)
{
    const std::string path = std::string(g_path_mlist) + "/" + domain + "/" + list + "/init";
    FILE *file = fopen(path.c_str(), "re");
    if (file == nullptr) return -1;
    const int found = fscanf(file, "%d", &settings->digest_time);
    fclose(file);
    return found == 1 ? 0 : -1;
}

ListSession *mlist_session_open(const char *, const char *)
{
    return reinterpret_cast<ListSession *>(malloc(1));
}

void mlist_session_close(ListSession *session)
{
    free(session);
}

int mlist_derive(ListSession *, const char *)
{
    return 0;
}
}
