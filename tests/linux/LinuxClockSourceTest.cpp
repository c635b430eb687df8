// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxClockSource.h"
#include "tests/linux/BusFixture.h"

#include <sys/timex.h>

namespace meridal {
namespace {

/// Answers as systemd-timedated 252 on Debian 12 does:
///     $ busctl call --verbose org.freedesktop.timedate1 /org/freedesktop/timedate1
///           org.freedesktop.DBus.Properties Get ss org.freedesktop.timedate1 NTPSynchronized
///     MESSAGE "v" {
///             VARIANT "b" {
///                     BOOLEAN false;
class Timedated {
public:
    explicit Timedated(const std::string& address)
    {
        static const sd_bus_vtable properties[] = {
            SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("NTPSynchronized", "b", &Timedated::tell, 0, 0), SD_BUS_VTABLE_END};
        EXPECT_GE(sd_bus_new(&bus_), 0);
        EXPECT_GE(sd_bus_set_address(bus_, address.c_str()), 0);
        EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
        EXPECT_GE(sd_bus_start(bus_), 0);
        EXPECT_GE(sd_bus_add_object_vtable(
                      bus_, nullptr, "/org/freedesktop/timedate1", "org.freedesktop.timedate1", properties, this),
            0);
        EXPECT_GE(sd_bus_request_name(bus_, "org.freedesktop.timedate1", 0), 0);
    }
    ~Timedated() { sd_bus_flush_close_unref(bus_); }
    Timedated(const Timedated&) = delete;
    Timedated& operator=(const Timedated&) = delete;

    void serve()
    {
        while (sd_bus_process(bus_, nullptr) > 0) { }
    }

    bool keeps = true;
    int asked = 0;

private:
    static int tell(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self, sd_bus_error*)
    {
        auto& timedated = *static_cast<Timedated*>(self);
        ++timedated.asked;
        return sd_bus_message_append(reply, "b", static_cast<int>(timedated.keeps));
    }

    sd_bus* bus_ = nullptr;
};

struct LinuxClockSourceTest : test::BusTest {
    void serveOthers() override
    {
        if (timedated) {
            timedated->serve();
        }
    }
    /// What it says once a question that it had has been answered: messages between two ends keep their order.
    bool answerOf(LinuxClockSource& source)
    {
        source.isSynchronised();
        bool answered = false;
        const auto note = [](sd_bus_message*, void* flag, sd_bus_error*) {
            *static_cast<bool*>(flag) = true;
            return 0;
        };
        EXPECT_GE(sd_bus_call_method_async(bus->handle(), nullptr, "org.freedesktop.timedate1", "/",
                      "org.freedesktop.DBus.Peer", "Ping", note, &answered, nullptr),
            0);
        bus->kick();
        EXPECT_TRUE(serveUntil([&] { return answered; }));
        return source.isSynchronised();
    }

    std::unique_ptr<Timedated> timedated;
};

TEST_F(LinuxClockSourceTest, SaysWhatTheKernelSays)
{
    ntptimeval clock = {};
    EXPECT_EQ(LinuxClockSource(runtime, bus).isSynchronised(), ::ntp_gettime(&clock) != TIME_ERROR);
}

TEST_F(LinuxClockSourceTest, WhomTheKernelRefusesAsksTheServiceAndSeldom)
{
    constexpr double day = 86'400;
    ASSERT_TRUE(serveUntil([&] { return isReady(); }));
    // Calls end by the real clock, of which virtual days run ahead.
    ASSERT_GE(sd_bus_set_method_call_timeout(bus->handle(), 10'000'000'000'000'000), 0); // us
    LinuxClockSource source(runtime, bus, [] { return std::nullopt; });
    const auto askedInADay = [&] {
        const int before = timedated->asked;
        for (int i = 0; i < 96; ++i) {
            runtime.advance(day / 96);
            EXPECT_EQ(answerOf(source), timedated->keeps);
        }
        return timedated->asked - before;
    };
    EXPECT_FALSE(answerOf(source)) << "there is no such service";
    timedated = std::make_unique<Timedated>(address);
    ASSERT_TRUE(serveUntil([&] {
        runtime.advance(10);
        return answerOf(source);
    }));
    EXPECT_LE(askedInADay(), 5);

    runtime.stepWallClock(400 * day);
    timedated->keeps = false;
    EXPECT_FALSE(source.isSynchronised()) << "the answer was about the clock before";
    EXPECT_LE(askedInADay(), 14) << "where nobody keeps the clock";
    runtime.stepWallClock(-400 * day);
    timedated->keeps = true;
    EXPECT_TRUE(answerOf(source)) << "asked at once";
    runtime.sleepMachine(3600);
    EXPECT_TRUE(source.isSynchronised()) << "sleep is no step";
}

} // namespace
} // namespace meridal
