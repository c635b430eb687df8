// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxUserRights.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace meridal {
namespace {

using GroupFile = std::map<std::string, std::uint32_t>;

LinuxUserRights::Groups lookUp(GroupFile file)
{
    return [file = std::move(file)](const char* name) {
        const auto group = file.find(name);
        return group != file.end() ? std::optional(group->second) : std::nullopt;
    };
}

TEST(LinuxUserRights, FilesGoToTheReadersWhereThereAreSuchElseToWhoAdministers)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "files can be given to other groups by root only";
    }
    const test::TemporaryTree tree;
    tree.write("state", "");
    const std::string path = tree.root() / "state";
    const auto groupOf = [&] {
        struct stat status { };
        return lstat(path.c_str(), &status) == 0 ? status.st_gid : 0;
    };
    const std::pair<GroupFile, gid_t> cases[] = {
        {{{"sudo", 4001}, {"meridal", 4002}, {"admin", 4003}}, 4002}, {{{"admin", 4003}, {"wheel", 4004}}, 4004}};
    for (const auto& [file, expected] : cases) {
        ASSERT_TRUE(LinuxUserRights(lookUp(file)).shareWithReaders(path));
        EXPECT_EQ(groupOf(), expected);
    }
    ASSERT_TRUE(LinuxUserRights(lookUp({{"meridal", 4002}}), 4005).shareWithReaders(path));
    EXPECT_EQ(groupOf(), 4005U) << "the group of the unit wins";
    int questions = 0;
    LinuxUserRights rights(
        [&questions](const char*) { return ++questions == 1 ? std::nullopt : std::optional(4006U); });
    ASSERT_TRUE(rights.shareWithReaders(path) && rights.shareWithReaders(path));
    EXPECT_EQ(questions, 2) << "one for each name until one is found, not for each file";
    EXPECT_EQ(LinuxUserRights(lookUp({{"users", 100}})).shareWithReaders(path).error().code, ErrorCode::NotFound);
}

TEST(LinuxUserRights, WhoMayReadAdministersNothing)
{
    // nobody (65534) is in the group of the same number on every system that has both.
    constexpr std::uint32_t nobody = 65534;
    EXPECT_FALSE(LinuxUserRights(lookUp({{"meridal", nobody}})).administers(nobody));
    EXPECT_TRUE(LinuxUserRights(lookUp({{"wheel", nobody}})).administers(nobody));
    EXPECT_TRUE(LinuxUserRights(lookUp({})).administers(0));
}

} // namespace
} // namespace meridal
