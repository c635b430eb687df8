// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/power/MacAdapters.h"
#include "simulated/mac/Raised.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

class MacPowerMessagesTest : public testing::Test {
protected:
    using Received = std::vector<std::pair<PowerMessage, PowerMessages::Token>>;

    auto receive(Received& received)
    {
        return messages->receive(
            [&received](PowerMessage message, PowerMessages::Token token) { received.emplace_back(message, token); });
    }
    void send(PowerMessage message, std::intptr_t token)
    {
        mac.power.send(static_cast<std::uint32_t>(message), token);
        mac.ledger.deliver();
    }

    test::SimulatedMac mac;
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    std::unique_ptr<PowerMessages> messages = makeMacPowerMessages(limitations);
};

TEST_F(MacPowerMessagesTest, EachComesWithItsTokenAndTheOneThatIsAllowedGoesBack)
{
    Received received;
    auto registration = receive(received);
    constexpr std::intptr_t large = 0x1'0000'0005; // tokens are as wide as pointers
    send(PowerMessage::CanSystemSleep, 41);
    send(PowerMessage::SystemWillSleep, large);
    send(PowerMessage::SystemHasPoweredOn, 0);
    send(PowerMessage{0xE0000320}, 0); // it will be powered on, which nobody here waits for
    EXPECT_EQ(received,
        (Received{{PowerMessage::CanSystemSleep, 41}, {PowerMessage::SystemWillSleep, large},
            {PowerMessage::SystemHasPoweredOn, 0}, {PowerMessage{0xE0000320}, 0}}));
    EXPECT_TRUE(mac.power.allowed.empty()) << "by those alone who have made ready";
    messages->allow(large);
    EXPECT_EQ(mac.power.allowed, std::vector<std::intptr_t>{large});

    mac.power.send(static_cast<std::uint32_t>(PowerMessage::SystemWillSleep), 42);
    registration.reset();
    mac.ledger.deliver();
    EXPECT_EQ(received.size(), 4U);
    messages->allow(42);
    EXPECT_EQ(mac.power.allowed.size(), 1U) << "nobody is registered";
    EXPECT_TRUE(limitations->all().empty());
}

TEST_F(MacPowerMessagesTest, AnExceptionOfTheSystemEndsTheMessageOnly)
{
    int received = 0;
    const auto registration = messages->receive([&received](PowerMessage, PowerMessages::Token) {
        ++received;
        throw test::Raised{"no such selector"};
    });
    testing::internal::CaptureStderr();
    send(PowerMessage::CanSystemSleep, 1);
    send(PowerMessage::SystemWillSleep, 2);
    EXPECT_EQ(received, 2);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("no such selector"), std::string::npos);
}

TEST_F(MacPowerMessagesTest, ARefusalIsTold)
{
    mac.ledger.fail("IORegisterForSystemPower");
    Received received;
    const auto refused = receive(received);
    EXPECT_TRUE(limitations->all().contains("sleep-messages"));
    messages->allow(1);
    EXPECT_TRUE(mac.power.allowed.empty());
}

TEST_F(MacPowerMessagesTest, OfTwoReceiversTheLaterAllows)
{
    Received first;
    Received second;
    auto earlier = receive(first);
    auto later = receive(second);
    earlier.reset();
    send(PowerMessage::SystemWillSleep, 7);
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(second.size(), 1U);
    messages->allow(7);
    EXPECT_EQ(mac.power.allowed, std::vector<std::intptr_t>{7});

    mac.ledger.fail("IORegisterForSystemPower");
    earlier = receive(first);
    earlier.reset();
    messages->allow(8);
    EXPECT_EQ(mac.power.allowed.size(), 2U) << "one that was refused leaves the other";
    later.reset();
    messages->allow(9);
    EXPECT_EQ(mac.power.allowed.size(), 2U);
}

} // namespace
} // namespace meridal
