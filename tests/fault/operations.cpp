#include "tests/fault/operations.h"

#include <gtest/gtest.h>

#include "mlist/admin.h"
#include "mlist/archive.h"
#include "store/file.h"

/* -- deliveries -- */

static std::function<Outcome(World &)> post()
{
    return [](World &world) { return world.post(11); };
}

static std::function<Outcome(World &)> command(const char *sender, const char *line)
{
    return [=](World &world) { return world.command(sender, line); };
}

static Outcome post_as_a_stranger(World &world)
{
    return world.post_as("stranger@example.com", 11);
}

/* -- the archive, as a host reaches it -- */

static Outcome done(bool well)
{
    return {well ? 0 : 75, well ? "" : "failed"};
}

/* A mailbox of its own: the list's archive has postings only. */
static std::string side_box(const World &world)
{
    return world.box() + "2";
}

static Outcome create_box(World &world)
{
    const int created = mlmbx_create(side_box(world).c_str());
    return done(created == 1 || exists(side_box(world) + "/#mix"));
}

static void make_side_box(World &world)
{
    EXPECT_EQ(1, mlmbx_create(side_box(world).c_str()));
}

static Outcome append_message(World &world)
{
    const std::string box = side_box(world), source = world.outside / "message";
    write_file(source, "Subject: x\r\n\r\nbody\r\n");
    IndexHandle *batch = mbxappend(box.c_str(), NO_INDEX_HANDLE, source.c_str(), 0, 14, 20, 0);
    if (batch == NO_INDEX_HANDLE) return done(false);
    errno =
        EIO; /* the second call answers the same in any case, and clears errno when it is done */
    (void)mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0);
    return done(errno == 0);
}

static Outcome with_archive(World &world, int mode, void (*use)(MailboxHandle *))
{
    MailboxHandle *handle = list_mbx_open(world.box().c_str(), mode);
    if (handle == nullptr) return done(false);
    use(handle);
    list_mbx_close(handle);
    return done(true);
}

static Outcome expunge_messages(World &world)
{
    return with_archive(world, MAILBOX_QUIET, [](MailboxHandle *handle) {
        if (handle->index[0].header_size > 3)
            handle->index[2].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
        mlmbx_expunge(handle, 0);
    });
}

static Outcome set_flags(World &world)
{
    return with_archive(world, MAILBOX_QUIET, [](MailboxHandle *handle) {
        handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
        handle->mode |= MAILBOX_FORCE_CHECK;
        mlmbx_checknewmail2(handle);
        handle->mode |= MAILBOX_FORCE_CHECK;
        mlmbx_checknewmail(handle);
    });
}

static Outcome rebuild(World &world)
{
    return done(list_mbx_rebuild(world.box().c_str()) == 0);
}

static Outcome look_at_the_archive(World &world)
{
    return with_archive(world, MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK, [](MailboxHandle *) {});
}

/* -- administration -- */

static Outcome in_session(const std::function<bool(ListSession *)> &use)
{
    ListSession *session = mlist_session_open("mylist", "example.jp");
    if (session == nullptr) return done(false);
    const bool well = use(session);
    mlist_session_close(session);
    return done(well);
}

static std::function<Outcome(World &)> session(bool (*use)(ListSession *))
{
    return [=](World &) { return in_session(use); };
}

/* Two that change something, and one that does not. */
static bool add_three(ListSession *list)
{
    const char *const three[] = {"carol@example.com", "alice@example.net", "frank@example.com"};
    int results[3];
    return mlist_member_add_many(list, three, 3, results) == 0;
}

static bool remove_three(ListSession *list)
{
    const char *const three[] = {"alice@example.net", "carol@example.com", "dora@example.jp"};
    int results[3];
    return mlist_member_remove_many(list, three, 3, results) == 0;
}

static bool set_three(ListSession *list)
{
    const char *const three[] = {"dora@example.jp", "carol@example.com", "alice@example.net"};
    int results[3];
    return mlist_member_set_status_many(list, three, 3, MEMBER_OFF, results) == 0;
}

static void remove_what_a_new_list_lacks(World &world)
{
    for (const char *name : {"status", "confirm", "grant", "subscribe"})
        EXPECT_EQ(0, unlink(world.list.control(name).c_str()));
    EXPECT_EQ(0, rmdir(world.list.control("msg").c_str()));
}

static Outcome make_list_files(World &world)
{
    return in_session([&](ListSession *list) {
        bool well = mlist_session_check_files(list) == 0;
        for (const char *name : {"status", "confirm"})
            well = well && exists(world.list.control(name));
        for (const char *name : {"grant", "subscribe"}) /* the host's part */
            write_file(world.list.control(name), "");
        return well;
    });
}

/* -- what an earlier crash left -- */

static void leave_half_a_status(World &world)
{
    leave_half_committed(world, "dgtstat", "1-3");
}

static void leave_half_a_roster(World &world)
{
    leave_half_committed(world, "member",
                         "alice@example.net ON \r\nbob@example.jp OFF\r\ndora@example.jp DGT\r\n");
}

const std::vector<Operation> operations = {
    {"PostingBelowTheKeepCount", Subject::posting, {}, post()},
    {"PostingAtTheKeepCount", Subject::posting, {"journal=3"}, post()},
    {"PostingThatIsNotKept", Subject::posting, {"journal=0"}, post()},
    {"PostingWithBanners", Subject::posting, {"journal=3"}, post(), true},
    {"PostingAfterHalfAStatus", Subject::posting, {}, post(), false, leave_half_a_status},
    {"PostingAfterHalfAnIndex", Subject::posting, {}, post(), false, leave_half_an_index},
    {"Denial", Subject::posting, {"vstrml=deny"}, post_as_a_stranger},
    {"Subscribe", Subject::command, {}, command("carol@example.com", "# subscribe")},
    {"Unsubscribe",
     Subject::command,
     {},
     command("alice@example.net", "# unsubscribe"),
     false,
     nullptr,
     true},
    {"LeavingTheDigest",
     Subject::command,
     {},
     command("dora@example.jp", "# unsubscribe"),
     false,
     nullptr,
     true},
    {"On", Subject::command, {}, command("dora@example.jp", "# on")},
    {"Off", Subject::command, {}, command("alice@example.net", "# off")},
    {"Digest", Subject::command, {}, command("alice@example.net", "# digest")},
    {"DigestAgain", Subject::command, {}, command("dora@example.jp", "# digest")},
    {"OffAfterHalfARoster",
     Subject::command,
     {},
     command("alice@example.net", "# off"),
     false,
     leave_half_a_roster},
    {"AskingForAnId", Subject::command, {"confirm=3"}, command("carol@example.com", "# subscribe")},
    {"JoiningWithAnId",
     Subject::command,
     {"confirm=3"},
     command("erin@example.com", "# subscribe EEEEEEEEEEEEEEEE")},
    {"LeavingWithAnId",
     Subject::command,
     {"confirm=3"},
     command("bob@example.jp", "# unsubscribe BBBBBBBBBBBBBBBB"),
     false,
     nullptr,
     true},
    {"Push", Subject::command, {}, command("owner-mylist@example.jp", "# push")},
    {"Get", Subject::command, {}, command("alice@example.net", "# get 1-2")},
    {"NoCommand", Subject::command, {}, command("alice@example.net", "hello")},
    {"MailboxCreate", Subject::archive, {}, create_box},
    {"MailboxAppend", Subject::archive, {}, append_message, false, make_side_box},
    {"MailboxExpunge", Subject::archive, {}, expunge_messages},
    {"MailboxFlags", Subject::archive, {}, set_flags},
    {"MailboxRebuild", Subject::archive, {}, rebuild},
    {"MailboxAfterHalfAnIndex",
     Subject::archive,
     {},
     look_at_the_archive,
     false,
     leave_half_an_index},
    {"ListCreate",
     Subject::administration,
     {},
     make_list_files,
     false,
     remove_what_a_new_list_lacks},
    {"MemberAdd", Subject::administration, {}, session([](ListSession *list) {
         return mlist_member_add(list, "carol@example.com") >= 0;
     })},
    {"MemberRemove", Subject::administration, {}, session([](ListSession *list) {
         return mlist_member_remove(list, "alice@example.net") >= 0;
     })},
    {"MemberSet", Subject::administration, {}, session([](ListSession *list) {
         return mlist_member_set_status(list, "dora@example.jp", MEMBER_ON) >= 0;
     })},
    {"MembersAdd", Subject::administration, {}, session(add_three)},
    {"MembersRemove", Subject::administration, {}, session(remove_three)},
    {"MembersSet", Subject::administration, {}, session(set_three)},
    {"GrantAdd", Subject::administration, {}, session([](ListSession *list) {
         return mlist_access_add(list, "grant", "alice@example.net") >= 0;
     })},
    {"SubscribeListAdd", Subject::administration, {}, session([](ListSession *list) {
         return mlist_access_add(list, "subscribe", "x.jp") >= 0;
     })},
    {"ConfirmClean", Subject::administration, {}, session([](ListSession *list) {
         return mlist_confirm_clean(list) == 0;
     })},
};

void PrintTo(const Operation &operation, std::ostream *out)
{
    *out << operation.label;
}

/* -- what became of the control files -- */

const std::vector<const char *> control_files = {"init",    "member", "active",    "digest",
                                                 "confirm", "grant",  "subscribe", "dgtstat"};

Contents contents_of(const World &world)
{
    Contents contents;
    for (const char *name : control_files)
        contents.push_back(world.list.get(name));
    return contents;
}

Contents recovered_contents_of(const World &world)
{
    Contents contents;
    for (const std::string name : control_files) {
        const bool committed =
            exists(world.list.control(name + ".new")) && exists(world.list.control(name + ".old"));
        contents.push_back(world.list.get(committed ? name + ".new" : name));
    }
    return contents;
}

void expect_old_or_new(const Contents &found, const Effect &effect)
{
    for (size_t i = 0; i < found.size(); ++i)
        EXPECT_TRUE(found[i] == effect.before[i] || found[i] == effect.after[i])
            << control_files[i] << " is neither old nor new:\n"
            << found[i];
}

Aftermath carry_on(World *world, const Operation &operation)
{
    Aftermath aftermath;
    aftermath.retried = operation.run(*world);
    if (aftermath.retried.exit != 0) aftermath.retried = operation.run(*world);
    world->start_check();
    aftermath.contents = contents_of(*world);
    aftermath.next = world->post(1000);
    aftermath.complaints = world->complaints();
    return aftermath;
}

Effect undisturbed(World *world, const Operation &operation)
{
    Effect effect;
    if (operation.prepare) operation.prepare(*world);
    effect.image = world->image();
    effect.promises = world->promises;
    effect.before = recovered_contents_of(*world);
    effect.outcome = operation.run(*world);
    effect.after = contents_of(*world);
    effect.complaints = carry_on(world, operation).complaints;
    return effect;
}
