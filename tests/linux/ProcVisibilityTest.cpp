// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcVisibility.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace meridal {
namespace {

TEST(ProcVisibility, FollowsTheMountOfProc)
{
    const auto withOptions = [](const std::string& options) {
        return parseRestriction("sysfs /sys sysfs rw,hidepid=2 0 0\nproc /proc proc rw,nosuid" + options
            + " 0 0\nproc /srv/jail/proc proc rw,hidepid=2 0 0\nproc /proc/sys proc ro 0 0\n");
    };
    const ProcessRestriction rootsGroup{.exemptGroup = 0};
    const ProcessRestriction others{.exemptGroup = 27};
    EXPECT_EQ(withOptions(""), std::nullopt);
    EXPECT_EQ(withOptions(",gid=27,hidepid=off"), std::nullopt);
    EXPECT_EQ(withOptions(",hidepid=0"), std::nullopt);
    EXPECT_EQ(withOptions(",gid=27,hidepid=invisible"), others);
    EXPECT_EQ(withOptions(",hidepid=noaccess"), rootsGroup);
    EXPECT_EQ(withOptions(",hidepid=1"), rootsGroup);
    EXPECT_EQ(withOptions(",hidepid=2,gid=27"), others);
    EXPECT_EQ(withOptions(",gid=27,hidepid=ptraceable"), ProcessRestriction{.exemptGroup = std::nullopt});
    EXPECT_EQ(parseRestriction("proc /proc proc rw,hidepid=2 0 0\nproc /proc proc rw 0 0\n"), std::nullopt);
}

TEST(ProcVisibility, ShowsUsersWhatTheyMightTrace)
{
    const test::TemporaryTree tree{{"proc/self/mounts", "proc /proc proc rw,hidepid=2 0 0\n"}};
    ProcVisibility visibility(tree.root());
    EXPECT_TRUE(visibility.restriction());
    tree.remove("proc/self/mounts");
    EXPECT_TRUE(visibility.restriction()) << "an option that cannot be read is no leave";
    const std::string me = std::to_string(::geteuid());
    const auto ownerWith = [&](const std::string& users, const std::string& groups) {
        tree.write("proc/7/status", "Name:\tx\nUid:\t" + users + "\nGid:\t" + groups + "\n");
        return visibility.ownerOf(7);
    };
    const std::string own = me + "\t" + me + "\t" + me + "\t" + me;
    EXPECT_EQ(ownerWith(own, "5\t5\t5\t5"), ::geteuid());
    EXPECT_EQ(ownerWith(me + "\t4711\t" + me + "\t4711", "5\t5\t5\t5"), std::nullopt) << "set-uid";
    EXPECT_EQ(ownerWith(own, "5\t6\t6\t6"), std::nullopt) << "set-gid";
    EXPECT_EQ(ownerWith("4711\t4711\t4711\t4711", "5\t5\t5\t5"), std::nullopt) << "its files are another's";
    EXPECT_EQ(ownerWith("", ""), std::nullopt);
    EXPECT_EQ(visibility.ownerOf(8), std::nullopt);
}

} // namespace
} // namespace meridal
