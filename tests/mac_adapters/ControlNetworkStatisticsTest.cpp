// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/traffic/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"
#include "simulated/mac/StatisticsControl.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace meridal {
namespace {

using Bytes = test::StatisticsControl::Bytes;

enum Message : std::uint32_t {
    AddAll = 1002,
    Query = 1004,
    Describe = 1005,
    Added = 10'001,
    Told = 10'003,
    Counts = 10'004
};

template <typename Number>
void put(Bytes& message, std::size_t at, Number number)
{
    std::memcpy(message.data() + at, &number, sizeof number);
}

template <typename Number>
Number numberAt(const Bytes& message, std::size_t at)
{
    Number number{};
    std::memcpy(&number, message.data() + at, sizeof number);
    return number;
}

/// As macOS 14 lays it out.
Bytes messageOf(Message type, std::size_t size, std::uint64_t source)
{
    Bytes message(size);
    put(message, 8, std::uint32_t{type});
    put(message, 12, static_cast<std::uint16_t>(size));
    put(message, 16, source);
    return message;
}

class MacStatisticsTest : public testing::Test {
protected:
    MacStatisticsTest()
    {
        mac.statistics.answer = [this](const Bytes& request) { answerTo(request); };
    }
    /// TCP's connections are listed at once; what is asked of one is answered at once.
    void answerTo(const Bytes& request)
    {
        const auto type = numberAt<std::uint32_t>(request, 8);
        const auto source = type == AddAll ? 0 : numberAt<std::uint64_t>(request, 16);
        if (type == AddAll && numberAt<std::uint32_t>(request, 32) == tcp) {
            for (std::uint64_t each = 1; each <= connections; ++each) {
                mac.statistics.say(messageOf(Added, 32, each));
            }
        } else if (type == Describe) {
            Bytes told = messageOf(Told, 384, source);
            put(told, 32, tcp);
            put(told, 156, static_cast<std::uint32_t>(400 + source));
            mac.statistics.say(told);
        } else if (type == Query) {
            Bytes counts = messageOf(Counts, 144, source);
            put(counts, 40, std::uint64_t{1000} * source);
            mac.statistics.say(counts);
        }
    }

    static constexpr std::uint32_t tcp = 2;
    std::uint64_t connections = 0;
    test::SimulatedMac mac;
    VirtualRuntime runtime;
    std::unique_ptr<NetworkStatistics> statistics = makeControlNetworkStatistics(runtime, {14, 0, 0});
};

TEST_F(MacStatisticsTest, NoAnswerIsLostHoweverManyConnectionsThereAre)
{
    connections = 30;
    mac.statistics.room = 30; // and two answers for each connection at a reading
    auto counting = statistics->start();
    ASSERT_TRUE(counting);
    for (int round = 0; round < 2; ++round) {
        const auto rows = (*counting)->read();
        ASSERT_EQ(rows.size(), 30U);
        for (const CountedConnection& each : rows) {
            EXPECT_EQ(each.pid, 400 + static_cast<std::int32_t>(each.id));
            EXPECT_EQ(each.bytesReceived, 1000 * each.id);
        }
    }
    const int descriptor = mac.statistics.open().at(0);
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << "programs that the daemon starts do not get it";
    mac.statistics.say(messageOf(Added, 32, 77));
    mac.statistics.say(messageOf(Added, 32, 78));
    runtime.makeReadable(descriptor);
    runtime.run();
    EXPECT_TRUE(mac.statistics.waiting.empty()) << "what comes by itself is read when it comes";
    EXPECT_EQ((*counting)->read().size(), 32U);
    (*counting).reset();
    EXPECT_TRUE(mac.statistics.open().empty());
}

TEST_F(MacStatisticsTest, ARefusalIsToldForWhatItIsAndLeavesNoSocket)
{
    for (const char* call : {"socket", "ioctl", "connect"}) {
        for (const auto& [error, code] :
            {std::pair(EPERM, ErrorCode::NotPermitted), std::pair(EACCES, ErrorCode::NotPermitted),
                std::pair(ENOENT, ErrorCode::Unavailable), std::pair(EBUSY, ErrorCode::Unavailable)}) {
            mac.ledger.fail(call, error);
            const auto refused = statistics->start();
            ASSERT_FALSE(refused) << call;
            EXPECT_EQ(refused.error().code, code) << call;
            EXPECT_NE(refused.error().message.find(call), std::string::npos);
            EXPECT_TRUE(mac.statistics.open().empty()) << call;
        }
    }
    EXPECT_TRUE(statistics->start()) << "and is no last word";
}

} // namespace
} // namespace meridal
