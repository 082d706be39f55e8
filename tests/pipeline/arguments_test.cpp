/* Who is meant: the request's arguments and what they create on disk. */
#include <sys/stat.h>

#include "tests/pipeline/pipeline.h"

class Arguments : public PipelineTest
{
};

TEST_F(Arguments, ANameOf32CharactersIsAList)
{
    const std::string name(32, 'n');
    EXPECT_EQ(75, deliver("From: a@b\r\n\r\n", {name}));
    EXPECT_TRUE(reply().starts_with("505 get_newid fail [ml=" + name + "] ")) << reply();
    EXPECT_TRUE(reply().ends_with(" " + tid() + "\n ")) << reply();
}

TEST_F(Arguments, ANameOf33CharactersIsRefused)
{
    const std::string name(33, 'n');
    EXPECT_EQ(69, deliver("From: a@b\r\n\r\n", {name}));
    EXPECT_EQ("501 argument error [ac=1] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(370, "mailing list name too long [ml=" + name + "]"));
    EXPECT_TRUE(logged(372, "argument error [ac=1]"));
    EXPECT_FALSE(exists(list.root() + "/control/example.jp/" + name));

    EXPECT_EQ(69, deliver("From: a@b\r\n\r\n", {name, "/c"}));
    EXPECT_EQ("501 argument error [ac=2] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(371, "mailing list name too long (ctrl) [ml=" + name + "]"));
}

TEST_F(Arguments, AnyOtherCountIsRefused)
{
    EXPECT_EQ(69, deliver("From: a@b\r\n\r\n", {}));
    EXPECT_EQ("501 argument error [ac=0] " + tid() + "\n", reply());
    EXPECT_EQ(69, deliver("From: a@b\r\n\r\n", {"mylist", "/c", "x"}));
    EXPECT_EQ("501 argument error [ac=3] " + tid() + "\n", reply());
}

TEST_F(Arguments, NamesThatLeadElsewhereAreRefusedAndCreateNothing)
{
    const std::string before = tree_text(list.root() + "/control");
    for (const char *name : {"", ".", ".."}) {
        EXPECT_EQ(69, deliver("From: a@b\r\n\r\n", {name})) << name;
        EXPECT_EQ("501 argument error [ac=1] " + tid() + "\n", reply()) << name;
    }
    for (const char *domain : {"", ".", ".."}) {
        EXPECT_EQ(69, host.deliver(list.root() + "/message", domain, {"mylist"})) << domain;
        EXPECT_EQ("501 argument error [ac=1] " + tid() + "\n", reply()) << domain;
    }
    EXPECT_EQ(before, tree_text(list.root() + "/control"));
    EXPECT_FALSE(exists(list.root() + "/mylist"));
}

TEST_F(Arguments, ADomainWithASlashIsNeverAPathAndFailsAtTheLock)
{
    write_file(list.root() + "/message", "From: a@b\r\n\r\n");
    EXPECT_EQ(69, host.deliver(list.root() + "/message", "x/../../evil", {"mylist"}));
    EXPECT_EQ("502 file lock time out [ml=mylist] " + tid() + "\n", reply());
    EXPECT_FALSE(exists(list.root() + "/evil"));
}

/* Directories are made for the domain as it was given; everything else happens in the cleaned
   one's. */
TEST_F(Arguments, ADomainWithCapitalsReachesOnlyAListThatExists)
{
    const std::string mail = "From: alice@example.net\r\n\r\ntext\r\n";
    write_file(message_file, mail);
    EXPECT_EQ(0, host.deliver(message_file, "Example.JP", {"mylist"}));
    EXPECT_NE(std::string::npos, archived(1).find("X-ML-Name: mylist@example.jp\r\n"));
    EXPECT_TRUE(exists(list.root() + "/control/Example.JP/mylist"));
    EXPECT_EQ(69, host.deliver(message_file, "New.Example", {"mylist"}));
    EXPECT_EQ("502 file lock time out [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(Arguments, SlashesControlsAndCapitalsOfANameAreCleaned)
{
    EXPECT_EQ(75, deliver("From: a@b\r\n\r\n", {"A/b\x01\x7f"
                                                "Z"}));
    EXPECT_TRUE(reply().starts_with("505 get_newid fail [ml=a:b::z] ")) << reply();
}

TEST_F(Arguments, TheMarkerIsRecognisedInEitherCaseAndAnyOtherMakesAPosting)
{
    const std::string mail = "From: alice@example.net\r\n\r\ntext\r\n";
    EXPECT_EQ(0, deliver(mail, {"mylist", "/C"}));
    EXPECT_TRUE(host.submissions.at(0).has_recipients) << "an answer, not a posting";
    EXPECT_TRUE(list_directory(list.box("#msg")).empty());
    EXPECT_EQ(0, deliver(mail, {"mylist", "/cc"}));
    EXPECT_FALSE(host.submissions.at(1).has_recipients);
    EXPECT_EQ(1u, list_directory(list.box("#msg")).size());
}

TEST_F(Arguments, MissingDirectoriesAreMadeForOwnerAndGroup)
{
    write_file(list.root() + "/message", "From: a@b\r\n\r\n");
    EXPECT_EQ(75, host.deliver(list.root() + "/message", "new.example", {"fresh"}));
    for (const char *name :
         {"/control/new.example", "/control/new.example/fresh", "/box/new.example/fresh",
          "/control/new.example/fresh/msg", "/control/new.example/fresh/jnl"}) {
        struct stat status;
        ASSERT_EQ(0, stat((list.root() + name).c_str(), &status)) << name;
        EXPECT_EQ(0760u, status.st_mode & 0777) << name;
    }
    struct stat status;
    ASSERT_EQ(0, stat((list.root() + "/control/new.example/fresh/lock").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
}

TEST_F(Arguments, WithoutMemoryForTheContextTheMailIsForLaterAndTheReplyEmpty)
{
    write_file(list.root() + "/message", "From: a@b\r\n\r\n");
    host.fail_allocation = 1; /* the context got its memory, the domain does not */
    EXPECT_EQ(75, host.deliver(list.root() + "/message", "example.jp", {"mylist"}));
    EXPECT_EQ("", reply());
}
