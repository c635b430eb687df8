// SPDX-License-Identifier: Apache-2.0
// Who has graphics processors work. The texts are of the form that the kernel's own documentation of i915, amdgpu and xe shows.

#include "platform/linux/processes/DrmClients.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace meridal::test {
namespace {

constexpr const char* ofI915 =
    "pos:\t0\nflags:\t0100002\nmnt_id:\t26\nino:\t506\ndrm-driver:\ti915\ndrm-client-id:\t7\n"
    "drm-pdev:\t0000:00:02.0\ndrm-engine-render:\t9288864723 ns\ndrm-engine-copy:\t2035071108 ns\n"
    "drm-engine-video:\t5 ns\ndrm-engine-capacity-video:\t2\n";
constexpr const char* ofAmdgpu =
    "drm-driver:\tamdgpu\ndrm-client-id:\t7\ndrm-pdev:\t0000:03:00.0\ndrm-memory-vram:\t2 KiB\n"
    "drm-memory-gtt: \t1 MiB\ndrm-memory-cpu: \t0 KiB\ndrm-engine-gfx:\t1000 ns\n";

std::string ofXe(std::uint64_t busy, std::uint64_t all)
{
    return "drm-driver:\txe\ndrm-client-id:\t3\ndrm-pdev:\t0000:04:00.0\ndrm-total-system:\t0\ndrm-resident-system:"
           "\t0\n"
           "drm-resident-vram0:\t3 MiB\ndrm-memory-vram0:\t9 MiB\ndrm-cycles-rcs:\t"
        + std::to_string(busy) + "\ndrm-total-cycles-rcs:\t" + std::to_string(all)
        + "\ndrm-cycles-bcs:\t0\ndrm-total-cycles-bcs:\t7655183225\n";
}

struct Drm : testing::Test {
    void open(const std::string& pid, const std::string& number, const std::string& target, const std::string& info)
    {
        tree.write("proc/" + pid + "/fdinfo/" + number, info);
        const auto folder = tree.root() / "proc" / pid / "fd";
        std::filesystem::create_directories(folder);
        std::filesystem::create_symlink(target, folder / number);
    }
    const GraphicsClient* of(std::int32_t pid)
    {
        const auto found = std::find_if(last.begin(), last.end(), [pid](const auto& each) { return each.pid == pid; });
        return found == last.end() ? nullptr : &*found;
    }
    void read(std::vector<std::int32_t> candidates, double now)
    {
        const auto told = clients->read(candidates, now);
        last.assign(told.begin(), told.end());
    }

    TemporaryTree tree{{"sys/class/drm/renderD128/dev", "226:128\n"}, {"proc/uptime", "1 1\n"}};
    std::unique_ptr<DrmClients> clients = std::make_unique<DrmClients>(tree.root());
    std::vector<GraphicsClient> last;
};

TEST_F(Drm, EachDriverCountsInItsOwnWay)
{
    open("10", "5", "/dev/dri/renderD128", ofI915);
    open("10", "6", "/dev/null", ofI915); // whatever it says
    open("11", "7", "/dev/dri/card1", ofAmdgpu);
    open("12", "8", "/dev/dri/renderD130", ofXe(1000, 10'000));
    open("13", "9", "/dev/dri/renderD131", "pos:\t0\nflags:\t02\n"); // a driver that tells nothing
    read({10, 11, 12, 13, 14}, 100);
    ASSERT_EQ(last.size(), 3U);
    EXPECT_EQ(of(10)->busyNs, 9'288'864'723U + 2'035'071'108U + 5U);
    EXPECT_EQ(of(10)->memoryBytes, std::nullopt);
    EXPECT_EQ(of(11)->busyNs, 1000U);
    EXPECT_EQ(of(11)->memoryBytes, 2048U + 1'048'576U);
    EXPECT_EQ(of(10)->client, of(11)->client);
    EXPECT_NE(of(10)->device, of(11)->device) << "numbers are unique by device only";
    EXPECT_EQ(of(12)->busyNs, 0U);
    EXPECT_EQ(of(12)->memoryBytes, 3U << 20U);

    tree.write("proc/12/fdinfo/8", ofXe(1500, 12'000));      // a quarter of 4 s
    tree.write("proc/10/fdinfo/5", "pos:\t0\nflags:\t02\n"); // something else has the number
    read({}, 104);
    EXPECT_EQ(of(10), nullptr);
    EXPECT_EQ(of(12)->busyNs, 1'000'000'000U);
    tree.write("proc/12/fdinfo/8", ofXe(100, 200)); // begun anew
    read({12}, 108);
    EXPECT_EQ(of(12)->busyNs, 1'000'000'000U);
    open("15", "3", "/dev/dri/renderD130", ofXe(200, 400)); // handed on, and read where it stood
    std::filesystem::remove_all(tree.root() / "proc/12");
    read({15}, 110);
    EXPECT_EQ(of(15)->busyNs, 2'000'000'000U);
    std::string anotherDoor = ofXe(0, 400); // opened under the number of the one before
    anotherDoor.replace(anotherDoor.find("id:\t3"), 5, "id:\t4");
    tree.write("proc/15/fdinfo/3", anotherDoor);
    read({}, 112);
    EXPECT_EQ(of(15)->busyNs, 0U);
}

TEST_F(Drm, NobodyIsLookedThroughWithoutADevice)
{
    open("10", "5", "/dev/dri/renderD128", ofI915);
    std::filesystem::remove_all(tree.root() / "sys/class/drm/renderD128");
    read({10}, 1);
    EXPECT_TRUE(last.empty());
    tree.write("sys/class/drm/card0/dev", "226:0\n"); // plugged
    read({10}, 30);
    EXPECT_TRUE(last.empty());
    read({10}, 70);
    EXPECT_EQ(last.size(), 1U);
}

} // namespace
} // namespace meridal::test
