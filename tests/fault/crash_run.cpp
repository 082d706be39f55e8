#include "tests/fault/crash_run.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <set>

static void replace_all(std::string *text, const std::string &what, const std::string &with)
{
    for (size_t at = 0; (at = text->find(what, at)) != std::string::npos; at += with.size())
        text->replace(at, what.size(), with);
}

std::string short_name(std::string name)
{
    replace_all(&name, "control/example.jp/mylist/", "CTL/");
    replace_all(&name, "box/example.jp/mylist/INBOX/", "BOX/");
    replace_all(&name, std::to_string(gettid()), "TID");
    return name;
}

static std::string long_name(std::string name)
{
    replace_all(&name, "CTL/", "control/example.jp/mylist/");
    replace_all(&name, "BOX/", "box/example.jp/mylist/INBOX/");
    replace_all(&name, "TID", std::to_string(gettid()));
    return name;
}

/* What the host and the senders know from a moment on. */
struct Known {
    size_t moment;
    World::Promises promises;
    std::map<std::string, std::string> files; /* control files: told to have this content */
};

static const char *const told_files[] = {"member", "confirm"};

/* What the file holds, or will hold when its replacement is finished. */
static std::string committed_content(const World &world, const std::string &name)
{
    const bool committed =
        exists(world.list.control(name + ".new")) && exists(world.list.control(name + ".old"));
    return world.list.get(committed ? name + ".new" : name);
}

static std::map<std::string, std::string> told(const World &world)
{
    std::map<std::string, std::string> files;
    for (const char *name : told_files)
        files[name] = committed_content(world, name);
    return files;
}

/* The steps, and what was known when. */
static std::vector<Known> run_steps(World *world, CrashDisk *disk, const CrashScenario &scenario,
                                    CrashFindings *findings)
{
    std::vector<Known> known = {{0, world->promises, told(*world)}};
    const auto learn = [&] { known.push_back({disk->moment(), world->promises, told(*world)}); };
    world->on_submit = learn;
    for (const auto &step : scenario.steps) {
        const size_t before = disk->syncs().size();
        disk->start_step();
        const Outcome outcome = step(*world);
        EXPECT_EQ(0, outcome.exit) << outcome.reply;
        learn();
        findings->syncs.assign(disk->syncs().begin() + static_cast<long>(before),
                               disk->syncs().end());
    }
    world->on_submit = nullptr;
    return known;
}

/* Files are as was told last, or as something later made them. */
static void compare_with_told(const World &world, const std::vector<Known> &known, size_t last,
                              Complaints *found)
{
    for (const char *name : told_files) {
        bool fits = false;
        for (size_t i = last; i < known.size(); ++i)
            fits = fits || known[i].files.at(name) == world.list.get(name);
        if (!fits) found->insert(std::string("\"") + name + "\" is neither old nor new");
    }
}

static Complaints recover(World *world, const std::vector<Known> &known, size_t last)
{
    world->promises = known[last].promises;
    world->start_check();
    const Outcome outcome = world->post(1000);
    Complaints found = world->complaints();
    forgive_work_files(&found);
    if (outcome.exit != 0) found.insert("the next posting is refused");
    compare_with_told(*world, known, last, &found);
    return found;
}

static std::string describe(const DiskImage &image, size_t moment)
{
    std::string text = "after " + std::to_string(moment) + " changes the disk has\n";
    for (const auto &[name, file] : image.names)
        if (file != DiskImage::DIRECTORY)
            text += "  " + short_name(name) + " (" +
                    std::to_string(image.contents.at(file).size()) + " bytes)\n";
    return text;
}

CrashFindings crash_everywhere(const CrashScenario &scenario, const LeftOutSync &left_out)
{
    CrashFindings findings;
    World world(scenario.settings);
    const StillMachine still;
    if (scenario.prepare) scenario.prepare(world);
    std::vector<Known> known;
    std::map<std::pair<size_t, DiskImage>, size_t> moments;
    {
        CrashDisk disk(world.list.root());
        if (!left_out.name.empty()) disk.leave_out_sync(long_name(left_out.name), left_out.nth);
        known = run_steps(&world, &disk, scenario, &findings);
        size_t last = 0;
        for (size_t moment = 0; moment <= disk.moment(); ++moment) {
            while (last + 1 < known.size() && known[last + 1].moment <= moment)
                ++last;
            for (const DiskImage &image : disk.images_at(moment))
                moments.emplace(std::pair(last, image), moment);
        }
    }
    for (const auto &[key, moment] : moments) {
        const auto &[last, image] = key;
        world.restore(image);
        const Complaints found = recover(&world, known, last);
        ++findings.images;
        if (!found.empty() && findings.first.empty())
            findings.first = *found.begin() + "\n" + describe(image, moment);
        findings.complaints.insert(found.begin(), found.end());
        if (found.contains(left_out.sought)) break;
    }
    return findings;
}
