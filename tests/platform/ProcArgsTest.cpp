// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/ProcArgs.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <memory>
#include <string>

namespace meridal {
namespace {

using namespace std::string_literals;

/// The area in a heap block of exactly its size, so that a sanitizer sees a read past its end.
std::optional<std::string> pathOf(const std::string& area)
{
    const std::unique_ptr<char[]> exact(new char[area.size()]);
    area.copy(exact.get(), area.size());
    const auto path = executablePathOfProcArgs({exact.get(), area.size()});
    return path ? std::optional<std::string>(*path) : std::nullopt;
}

TEST(ProcArgs, PathEndsAtItsFirstNulWhateverFollows)
{
    EXPECT_EQ(pathOf("\2\0\0\0/Applications/A B.app/Contents/MacOS/A B\0\0\0\0A B\0-x\0HOME=/var/root\0"s),
        "/Applications/A B.app/Contents/MacOS/A B");
    EXPECT_EQ(pathOf("\1\0\0\0relative\0"s), "relative");
    EXPECT_EQ(pathOf("\1\0\0\0\0/bin/sh\0"s), std::nullopt) << "an empty path";
    EXPECT_EQ(pathOf("\0\0\0\0/\xFF\x1B\0"s), "/\xFF\x1B") << "raw bytes stay as they are";
}

TEST(ProcArgs, ArgumentsEndWhereTheEnvironmentBegins)
{
    const std::string area = "\3\0\0\0/bin/x\0\0\0\0x\0\0--a=b c\0SECRET=1\0"s;
    EXPECT_EQ(argumentsOfProcArgs(area), "x\0\0--a=b c\0"s) << "one of them empty";
    EXPECT_EQ(argumentsOfProcArgs(std::string_view(area).substr(0, 18)), "x\0\0"s) << "cut";
    EXPECT_EQ(argumentsOfProcArgs("\0\0\0\0/bin/x\0\0SECRET=1\0"s), std::nullopt);
    EXPECT_EQ(argumentsOfProcArgs("\377\377\377\377/bin/x\0x\0"s), std::nullopt) << "a count below nothing";
    EXPECT_EQ(argumentsOfProcArgs("\3\0\0\0/bin/x\0"s), std::nullopt);
}

TEST(ProcArgs, AnyCutOfAnAreaGivesTheWholePathOrNothing)
{
    const bool holds = rc::check("no cut area yields a cut path", [](const std::string& tail) {
        const std::string path = "/usr/libexec/a-daemon-with-a-name";
        const std::string whole = "\3\0\0\0"s + path + '\0' + tail;
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            const bool complete = length > 4 + path.size();
            RC_ASSERT(pathOf(whole.substr(0, length)) == (complete ? std::optional(path) : std::nullopt));
        }
    });
    EXPECT_TRUE(holds);
}

} // namespace
} // namespace meridal
