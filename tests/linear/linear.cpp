#include "tests/linear/linear.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "mlist/mlist.h"
#include "tests/linear/steps.h"
#include "tests/support/log_capture.h"

Make repeated(const std::string &piece)
{
    return repeated("", piece, "");
}

Make repeated(const std::string &begin, const std::string &piece, const std::string &end)
{
    return [=](size_t size) {
        const size_t inner = size - std::min(size, begin.size() + end.size());
        const size_t pieces = inner / piece.size() + 1;
        std::string text = begin;
        text.reserve(size + piece.size() + 1);
        text += piece;
        for (size_t done = 1; done < pieces;) {
            const size_t more = std::min(done, pieces - done);
            text.append(text.data() + begin.size(), more * piece.size());
            done += more;
        }
        return text + end;
    };
}

namespace
{
struct Counted {
    size_t size;
    uint64_t steps;
    double each() const { return static_cast<double>(steps) / static_cast<double>(size); }
};
} // namespace

static Counted count(const Worst &input, const Run &run, size_t wanted)
{
    std::string text = input.make(wanted);
    const size_t size = text.size();
    const Counted counted = {size, steps_of([&] { run(text); })};
    if (getenv("LINEAR_SHOW") != nullptr)
        fprintf(stderr, "%-48s %10zu %12.2f steps a byte\n", input.label, size, counted.each());
    return counted;
}

/* Whether it goes on from the one to the other as it should. */
static bool grows_as_it_should(const Worst &input, const Counted &former, const Counted &counted)
{
    const double growth = former.size < 64 * KIB ? 1.5 : 1.2;
    if (counted.each() > growth * former.each()) {
        ADD_FAILURE() << input.label << ": " << former.each() << " steps for each of "
                      << former.size << " bytes, " << counted.each() << " for each of "
                      << counted.size;
        return false;
    }
    if (input.bound[0] == '\0' && counted.each() < 1.0 / 8) {
        ADD_FAILURE() << input.label << ": " << counted.steps << " steps are not all "
                      << counted.size << " bytes";
        return false;
    }
    return true;
}

void demand_linear(const std::vector<Worst> &inputs, const Run &run, size_t usual)
{
    const bool all = getenv("LINEAR_ALL") != nullptr;
    log_collected = false; /* a line of log for each of millions */
    const Worst *dearest = nullptr;
    Counted most = {1, 0};
    for (const Worst &input : inputs) {
        Counted former = count(input, run, KIB);
        for (const size_t size : {64 * KIB, MIB, 64 * MIB}) {
            if (size == 64 * MIB && !all) break;
            const Counted counted = count(input, run, size);
            if (!grows_as_it_should(input, former, counted)) return; /* it might take hours */
            former = counted;
        }
        if (dearest != nullptr && former.each() <= most.each()) continue;
        dearest = &input;
        most = former;
    }
    if (!all && usual > MIB) (void)grows_as_it_should(*dearest, most, count(*dearest, run, usual));
}

MemoryFile::MemoryFile(const std::string &text) : fd_(memfd_create("linear", MFD_CLOEXEC))
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(fd_, text.data() + done, text.size() - done);
        if (written <= 0) throw std::runtime_error("no memory for a file");
        done += static_cast<size_t>(written);
    }
    lseek(fd_, 0, SEEK_SET);
}

MemoryFile::~MemoryFile()
{
    close(fd_);
}

Discard::Discard() : stream_(fopen("/dev/null", "w"))
{
    mlist_set_output(stream_);
}

Discard::~Discard()
{
    mlist_set_output(nullptr);
    fclose(stream_);
}
