// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/DiskHelper.h"
#include "platform/linux/disks/DiskServer.h"
#include "platform/linux/disks/LinuxSMARTDevice.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace meridal::test {
namespace {

using Numbers = std::vector<std::uint32_t>;

/// Bytes with some of their numbers of 32 bits replaced.
template <typename Bytes>
std::vector<std::uint8_t> altered(const Bytes& bytes, std::size_t place, std::uint32_t value)
{
    std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
    std::memcpy(copy.data() + place * sizeof value, &value, sizeof value);
    return copy;
}

TEST(DiskMessages, ARequestIsWhatItsNumbersAllowAndNothingElse)
{
    const DiskRequest page{.verb = DiskVerb::Page, .disk = 3, .page = DiskPage::Status, .shortCommands = true};
    const DiskRequestBytes bytes = encode(page);
    const auto same = decodeDiskRequest(bytes);
    ASSERT_TRUE(same);
    EXPECT_EQ(encode(*same), bytes);
    EXPECT_TRUE(decodeDiskRequest(altered(bytes, 2, mostDisks - 1)));
    struct Wrong {
        std::size_t place;
        Numbers values;
    };
    for (const Wrong& wrong : {Wrong{0, {0, 1}}, Wrong{1, {0, 5, 0xFFFF'FFFF}}, Wrong{2, {mostDisks, 0xFFFF'FFFF}},
             Wrong{3, {0, 5, 0xFFFF'FFFF}}, Wrong{4, {1, 4, 0x8000'0000}}, Wrong{5, {1}}}) {
        for (const std::uint32_t value : wrong.values) {
            EXPECT_FALSE(decodeDiskRequest(altered(bytes, wrong.place, value))) << wrong.place << ": " << value;
        }
    }
    EXPECT_FALSE(decodeDiskRequest(altered(encode(DiskRequest{.verb = DiskVerb::PowerMode}), 3, 1)));
    EXPECT_FALSE(decodeDiskRequest(std::span(bytes).first(diskRequestSize - 1)));
    EXPECT_FALSE(decodeDiskRequest({}));
}

TEST(DiskServer, KnowsDisksOfItsOwnListOnly)
{
    TemporaryTree tree;
    tree.write("sys/devices/pci0/nvme/nvme0/transport", "pcie\n");
    tree.link("sys/class/nvme/nvme0", "../../devices/pci0/nvme/nvme0");
    DiskServer server(tree.root());
    EXPECT_EQ(server.answer({.verb = DiskVerb::Identify}).error, ENODEV) << "nobody has asked for the list";
    EXPECT_EQ(server.answer({}).path, "sys/devices/pci0/nvme/nvme0");
    EXPECT_EQ(server.answer({.disk = 1}).path, "");
    EXPECT_EQ(server.answer({.verb = DiskVerb::PowerMode, .disk = 1}).error, ENODEV);
    EXPECT_EQ(server.answer({.verb = DiskVerb::Page, .page = DiskPage::Data}).error, EINVAL) << "not of that kind";
    EXPECT_EQ(server.answer({.verb = DiskVerb::PowerMode}).power, DiskPower::Awake);
    EXPECT_EQ(server.answer({.verb = DiskVerb::Page, .page = DiskPage::Health}).error, ENOENT) << "it has no node";
}

/// Something that listens where the program should, and answers each message by a function of it; empty: it leaves.
class FalseHelper {
public:
    using Answer = std::function<std::vector<std::uint8_t>(const DiskRequest&)>;

    FalseHelper(const std::string& path, Answer answer) : answer_(std::move(answer))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener_.get(), 8), 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~FalseHelper()
    {
        ::shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
    }
    FalseHelper(const FalseHelper&) = delete;
    FalseHelper& operator=(const FalseHelper&) = delete;

private:
    void serve()
    {
        for (;;) {
            const Descriptor connection(::accept(listener_.get(), nullptr, nullptr));
            DiskRequestBytes bytes;
            while (connection && ::recv(connection.get(), bytes.data(), bytes.size(), 0) > 0) {
                const auto answer = answer_(decodeDiskRequest(bytes).value_or(DiskRequest{}));
                if (answer.empty() || ::send(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL) < 0) {
                    break;
                }
            }
            if (!connection) {
                return;
            }
        }
    }

    Answer answer_;
    Descriptor listener_{::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    std::thread thread_;
};

class DiskHelperTest : public testing::Test {
protected:
    TemporaryTree tree;
    std::string path = tree.root() / "socket";
    DiskHelper helper{{.socket = path}, "sys/disk"};
};

TEST_F(DiskHelperTest, WhatMakesNoSenseEndsAConversationAndTheNextQuestionBeginsAnother)
{
    using Answer = FalseHelper::Answer;
    const auto list = [](const DiskRequest& request, std::uint32_t count = 1, const std::string& disk = "sys/disk") {
        return encode(DiskReply{.count = count, .path = disk}, request);
    };
    const std::vector<std::pair<Answer, int>> falseHelpers = {
        {[](const DiskRequest&) { return std::vector<std::uint8_t>(); }, EPIPE},
        {[](const DiskRequest&) { return std::vector<std::uint8_t>(100'000, 0xFF); }, EPIPE},
        {[](const DiskRequest&) { return std::vector<std::uint8_t>(1); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 0, 0); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 1, 2); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 2, 7); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 3, 0xFFFF'FFFF); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 4, mostDisks + 1); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 5, 3); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 6, 3); }, EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request), 7, 8); }, EPIPE},
        {[&](const DiskRequest& request) { // a path without an end
             auto bytes = altered(list(request), 0, 0x6D64'7231);
             std::fill(bytes.end() - 512, bytes.end(), std::uint8_t{'x'});
             return bytes;
         },
            EPIPE},
        {[&](const DiskRequest& request) { return altered(list(request, mostDisks, "sys/other"), 3, 0); }, ENODEV},
    };
    for (std::size_t at = 0; at < falseHelpers.size(); ++at) {
        const FalseHelper other(path, falseHelpers[at].first);
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(helper.ask({.verb = DiskVerb::Identify}).error, falseHelpers[at].second) << at;
        }
        std::filesystem::remove(path);
    }
    int asked = 0;
    const FalseHelper dying(path, [&](const DiskRequest& request) {
        if (request.verb == DiskVerb::List) {
            return altered(list(request), 3, 0);
        }
        DiskReply page;
        page.page.emplace().fill(7);
        return ++asked == 1 ? std::vector<std::uint8_t>() : altered(encode(page, request), 3, 0);
    });
    EXPECT_EQ(helper.ask({.verb = DiskVerb::Identify}).error, EPIPE) << "it left while it was asked";
    const auto page = helper.ask({.verb = DiskVerb::Identify}).page;
    EXPECT_TRUE(page && page->at(511) == 7);
    helper.stop();
}

TEST_F(DiskHelperTest, WithoutTheProgramADiskIsDeniedAndTakenToSleep)
{
    LinuxSMARTDevice device(RootFolder("/"), {.path = "sys/disk"}, {.socket = path}, false);
    EXPECT_EQ(device.powerMode(), DiskPower::Unknown);
    EXPECT_TRUE(device.isDenied());
    EXPECT_FALSE(device.readData() || device.isFailing());
}

} // namespace
} // namespace meridal::test
