// SPDX-License-Identifier: Apache-2.0
#include "client/ChildProgram.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace meridal {
namespace {

TEST(ChildProgramTest, EachRunsAfterThoseBeforeItAndGetsWhatWasSaidAndNothingElseOfOurs)
{
    const test::TemporaryTree folder;
    EventLoop loop;
    std::string complaints;
    ProgramQueue programs(loop, [&](const std::string& what) { complaints += what + '\n'; });
    const auto ended = loop.watchSignals({SIGUSR1}, [&loop] { loop.stop(); });
    const std::string note = "printf '%s,' \"$@\" \"$ONE\" \"$(cat)\" $(ls /dev/fd/) >>" + folder.path("notes");
    setenv("ONE", "ours", 1);
    programs.run({.words = {"sh", "-c", note, "sh", "$(x) 'y'"}, .variables = {"ONE=1"}, .input = "in\n"});
    programs.run({.words = {"/nowhere/x"}, .variables = {}, .input = {}});
    programs.run({.words = {"sh", "-c", "exit 7"}, .variables = {}, .input = std::string(100'000, 'x')});
    programs.run({.words = {"sh", "-c", "kill -USR1 " + std::to_string(getpid())}, .variables = {}, .input = {}});
    loop.run();
    unsetenv("ONE");
    EXPECT_EQ(folder.read("notes"), "$(x) 'y',1,in,0,1,2,3,") << "ls has a descriptor of its own";
    EXPECT_EQ(complaints, "/nowhere/x cannot be run: No such file or directory\nsh ended with status 7\n");
}

TEST(ChildProgramTest, OneThatHangsIsKilledWithWhatItStarted)
{
    EventLoop loop;
    std::string complaints;
    const auto take = [&](const std::string& what) {
        complaints += what + '\n';
        if (what.ends_with("signal 9")) {
            loop.stop();
        }
    };
    ProgramQueue programs(loop, take, 0.05);
    programs.run({.words = {"sh", "-c", "sleep 600 & exec sleep 600"}, .variables = {}, .input = {}});
    loop.run();
    EXPECT_EQ(complaints, "sh took longer than 0.05 s and is killed\nsh was ended by signal 9\n");
}

} // namespace
} // namespace meridal
