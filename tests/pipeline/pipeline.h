/* A list that can be posted to, and a host that posts. */
#ifndef TESTS_PIPELINE_H
#define TESTS_PIPELINE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/fake_host.h"
#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"

/* The settings file of the examples, every key written out. */
std::string sample_init();

/* The same with the lines of the given keys replaced, e.g. {"vstrml=deny"}. */
std::string init_with(const std::vector<std::string> &lines);

/* Lines joined with CR LF, the last one included. */
std::string crlf(const std::vector<std::string> &lines);

class PipelineTest : public ::testing::Test
{
  protected:
    PipelineTest();
    ~PipelineTest() override;

    /* Writes the text to a message file and delivers it. */
    int post(const std::string &message);
    int command(const std::string &message);
    int deliver(const std::string &message, const std::vector<std::string> &arguments);

    /* Posts a plain message of alice's with the given extra header lines and body. */
    int post_plain(const std::vector<std::string> &headers = {},
                   const std::string &body = "Hi.\r\n");

    std::string reply() const { return host.reply(); }
    std::string tid() const;                   /* as "%03d" shows it */
    std::string journal() const;               /* jnl/j.TID of this thread, its content */
    std::string archived(unsigned uid) const;  /* "#msg/UID" */
    std::vector<uint32_t> index_words() const; /* "#mix" as 32-bit words */
    std::string path(const std::string &name = "") const { return list.control(name); }
    void expect_nothing_lost_or_left() const; /* no side files, no lock held */

    std::string message_file; /* where deliver() puts the incoming message */
    TempList list;
    OutCapture out;
    FakeHost host;
};

#endif
