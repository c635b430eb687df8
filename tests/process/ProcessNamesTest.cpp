// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessNames.h"

#include "base/Value.h"
#include "tests/process/ProcessFixture.h"

#include <rapidcheck.h>

namespace meridal {
namespace {

class ProcessNamesTest : public test::ProcessFixture {
protected:
    const std::string cut_ = "a-desktop-portal"; // as long as a name can be
    std::string shownName(std::int32_t pid)
    {
        return std::string(collector().sharingNameForProcess(*collector().processForPid(pid), false));
    }
    void set(std::int32_t pid, std::string_view name, std::optional<std::string> path = {})
    {
        ProcessFixture::set(pid, 1, name);
        if (path) {
            source().paths[pid] = *path;
        }
    }
};

TEST_F(ProcessNamesTest, NameThatMayBeCutIsAskedForWhenShownAndOnce)
{
    ASSERT_TRUE(source().mayBeCut(cut_.size()));
    set(7, cut_, "/usr/libexec/a-desktop-portal-gtk");
    set(8, "short");
    update();
    EXPECT_FALSE(item(7).loadedName);
    EXPECT_TRUE(item(8).loadedName);
    EXPECT_EQ(source().pathLookups, 0);
    EXPECT_EQ(shownName(7) + shownName(7), "a-desktop-portal-gtka-desktop-portal-gtk");
    EXPECT_EQ(shownName(8), "short");
    EXPECT_TRUE(item(7).loadedName);
    EXPECT_EQ(source().pathLookups, 1);

    const std::string longName = "An Application's Helper (Render"; // where a host has names of two lengths
    set(9, longName, "/Applications/X.app/An Application's Helper (Renderer)");
    set(10, longName.substr(0, 30));
    update();
    EXPECT_EQ(shownName(9), "An Application's Helper (Renderer)");
    EXPECT_EQ(shownName(10), longName.substr(0, 30)) << "whole, though longer than the short ones can be";
    EXPECT_EQ(source().pathLookups, 2);
}

TEST_F(ProcessNamesTest, ProgramsThatShareACutNameKeepTheirOwn)
{
    set(7, cut_, "/usr/libexec/a-desktop-portal-gtk");
    update();
    shownName(7);
    set(8, cut_, "/usr/libexec/a-desktop-portal-gnome");
    set(9, cut_, "/usr/libexec/a-desktop-portal");
    set(10, cut_);
    updateAfter(2);
    EXPECT_EQ(item(8).name(), "a-desktop-portal-gtk") << "the best guess until it is asked";
    EXPECT_EQ(shownName(8), "a-desktop-portal-gnome");
    EXPECT_EQ(shownName(9), cut_);
    EXPECT_EQ(shownName(10), "a-desktop-portal-gtk") << "may not be asked, so the guess stays";
}

TEST_F(ProcessNamesTest, AProcessThatStartsAnotherProgramHasItsName)
{
    set(7, "bash");
    set(8, cut_, "/usr/libexec/a-desktop-portal-gtk");
    set(9, "", "/opt/tool");
    set(10, "");
    update();
    EXPECT_EQ(shownName(8), "a-desktop-portal-gtk");
    EXPECT_EQ(item(9).name(), "tool") << "asked for at once";
    EXPECT_TRUE(item(10).name().empty() && item(10).loadedName);
    set(7, cut_, "/usr/libexec/a-desktop-portal-gnome");
    set(8, "short");
    updateAfter(2);
    EXPECT_EQ(shownName(7), "a-desktop-portal-gnome");
    EXPECT_EQ(shownName(8), "short");
}

TEST_F(ProcessNamesTest, TraitsOfNames)
{
    EXPECT_TRUE(traitsOfName("Safari Web Content").safariWebContent);
    EXPECT_TRUE(traitsOfName("COM.apple.WebKit").safariWebContent);
    EXPECT_FALSE(traitsOfName("a com.apple.web").safariWebContent);
    for (const auto* name : {"bash", "sudo", "iTerm2", "Terminal", "ruby2.7", "perl5", "my XPCProxy", "fish", "dash",
             "su", "tmux: server", "screen", "sshd-session", "rcS", "gnome-terminal-", "xfce4-terminal", "konsole"}) {
        EXPECT_TRUE(traitsOfName(name).startsCommands) << name;
    }
    for (const auto* name : {"Bash", "bashful", "terminals", "a ruby", "login2", "rcu_gp", "sum", ""}) {
        EXPECT_FALSE(traitsOfName(name).startsCommands) << name;
    }
    EXPECT_TRUE(traitsOfName("nginx: worker").standsAlone && traitsOfName("sh").standsAlone);
    EXPECT_FALSE(traitsOfName("shell").standsAlone);

    set(2, "launchd_sim");
    set(3, "Launchd");
    set(1, "init");
    update();
    EXPECT_TRUE(item(2).isLaunchd);
    EXPECT_FALSE(item(3).isLaunchd) << "case matters";
    EXPECT_TRUE(item(1).isLaunchd) << "whatever it calls itself";
}

TEST_F(ProcessNamesTest, HostileNamesBecomeText)
{
    set(7, "\xFF\xFE\x01\"\\\n");
    set(8, "0123456789abcde\xC3"); // cut in the middle of a letter
    source().paths[8] = "/x/0123456789abcde\xC3\xA9";
    set(9, "in/the/way");
    update();
    const Dictionary list = Value::parse(collector().cpuProcesses({}));
    EXPECT_NO_THROW(list.dump()); // strict: throws on bytes that are not text
    EXPECT_EQ(shownName(8), "0123456789abcde\xC3\xA9");

    EXPECT_TRUE(rc::check("any bytes, any path", [this](const std::string& name, const std::string& path) {
        ProcessRecord record = test::FakeProcessSource::process(50, 1, name);
        record.startIdentity = *rc::gen::arbitrary<std::uint64_t>();
        source().set(record);
        source().paths[50] = path;
        update();
        for (const std::string& text : {collector().cpuProcesses({}), collector().powerProcesses({})}) {
            RC_ASSERT(!Value::parse(text).dump().empty()); // both throw on what is not text
        }
    }));
}

TEST_F(ProcessNamesTest, BundlesAreAskedForOnceAProgram)
{
    set(7, "loader");
    set(8, "kernel thread");
    source().bundles[7] = "/usr/bin/loader";
    update();
    updateAfter(2);
    collector().cpuProcesses({});
    EXPECT_EQ(source().bundleLookups, 0) << "only one list tells them";
    const auto bundles = [this] {
        std::vector<std::string> told;
        const Value list = Value::parse(collector().powerProcesses({}));
        for (const Value& entry : list.at("processes")) {
            told.push_back(entry.at("bundle").get<std::string>());
        }
        return told;
    };
    EXPECT_EQ(bundles(), std::vector<std::string>({"/usr/bin/loader", ""}));
    bundles();
    EXPECT_EQ(source().bundleLookups, 2);
    set(7, "game");
    source().bundles[7] = "game\xFF.desktop";
    updateAfter(2);
    EXPECT_EQ(bundles().front(), "game\uFFFD.desktop");
    EXPECT_EQ(source().bundleLookups, 3);
}

TEST_F(ProcessNamesTest, CacheForgetsWhenItIsFull)
{
    ProcessNameCache cache;
    for (std::size_t number = 0; number < 3 * ProcessNameCache::capacity; ++number) {
        cache.store(std::to_string(number), "x");
        ASSERT_LE(cache.size(), ProcessNameCache::capacity);
    }
    EXPECT_NE(cache.find(std::to_string(3 * ProcessNameCache::capacity - 1)), nullptr);
}

TEST_F(ProcessNamesTest, WebContentShowsItsPages)
{
    set(7, "Safari Web Cont");
    set(8, "other");
    update();
    EXPECT_EQ(shownName(7), "Safari Web Cont");
    for (const std::int32_t pid : {7, 8}) {
        collector().processForPid(pid)->makeExtras().safariURLS = {"https://www.example.org/a", "http://b.example"};
    }
    EXPECT_EQ(shownName(7), "example.org/a, b.example");
    EXPECT_EQ(shownName(8), "other");
}

} // namespace
} // namespace meridal
