#include "tests/pipeline/pipeline.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "module/module_vars.h"
#include "store/file.h"

std::string crlf(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\r\n";
    return text;
}

static std::vector<std::string> sample_lines()
{
    return {
        "cmd=on on on on on on on on on on",
        "subject=edit",
        "subjectf=[%M:%0S]",
        "vstrml=grant",
        "vstrc=part",
        "precedence=list",
        "journal=1000",
        "time=7:30",
        "replyedit=add",
        "replyto=mylist@example.jp",
        "defstatus=1",
        "confirm=0",
        "maxsummary=500",
        "maxmsgsize=0",
        "webpasswd=",
    };
}

std::string sample_init()
{
    return crlf(sample_lines());
}

std::string init_with(const std::vector<std::string> &changes)
{
    std::vector<std::string> lines = sample_lines();
    for (const std::string &change : changes) {
        const std::string key = change.substr(0, change.find('=') + 1);
        for (std::string &line : lines)
            if (line.starts_with(key)) line = change;
    }
    return crlf(lines);
}

PipelineTest::PipelineTest()
{
    message_file = list.root() + "/message";
    default_settings(&g_mlit);
    add_resent_header = force_remove_bracket = ml_maxmsgsize = ml_webpasswd = 0;
    list.put("init", sample_init());
    list.put("member", "alice@example.net ON \r\nbob@example.jp ON \r\n");
    list.put("active", "alice@example.net\r\nbob@example.jp\r\n");
    std::string box = list.box();
    EXPECT_EQ(1, mlmbx_create(box.c_str()));
    (void)take_log();
    (void)out.take();
}

PipelineTest::~PipelineTest()
{
    EXPECT_EQ(0, host.live_blocks) << "memory of the delivery was not given back";
}

int PipelineTest::deliver(const std::string &message, const std::vector<std::string> &arguments)
{
    write_file(message_file, message);
    return host.deliver(message_file, "example.jp", arguments);
}

int PipelineTest::post(const std::string &message)
{
    return deliver(message, {"mylist"});
}

int PipelineTest::command(const std::string &message)
{
    return deliver(message, {"mylist", "/c"});
}

int PipelineTest::post_plain(const std::vector<std::string> &headers, const std::string &body)
{
    std::vector<std::string> lines = {"From: alice@example.net", "Subject: Hello",
                                      "Message-ID: <a1@example.net>"};
    lines.insert(lines.end(), headers.begin(), headers.end());
    return post(crlf(lines) + "\r\n" + body);
}

std::string PipelineTest::tid() const
{
    char text[32];
    snprintf(text, sizeof(text), "%03d", gettid());
    return text;
}

std::string PipelineTest::journal() const
{
    return list.get("jnl/j." + std::to_string(gettid()));
}

std::string PipelineTest::archived(unsigned uid) const
{
    return read_file(list.box("#msg/" + std::to_string(uid)));
}

std::vector<uint32_t> PipelineTest::index_words() const
{
    const std::string bytes = read_file(list.box("#mix"));
    std::vector<uint32_t> words(bytes.size() / 4);
    memcpy(words.data(), bytes.data(), words.size() * 4);
    return words;
}

void PipelineTest::expect_nothing_lost_or_left() const
{
    for (const std::string &directory : {list.control(), list.box()})
        for (const std::string &name : list_directory(directory)) {
            EXPECT_FALSE(name.ends_with(".new") || name.ends_with(".old")) << name;
            EXPECT_FALSE(name.ends_with(".new1")) << name;
        }
    const int fd = open(path("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(0, flock(fd, LOCK_EX | LOCK_NB)) << "the list lock is still held";
    close(fd);
}
