// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/LogindPowerMessages.h"
#include "tests/linux/BusFixture.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <vector>

namespace meridal {
namespace {

constexpr const char* login = "org.freedesktop.login1";
constexpr const char* manager = "org.freedesktop.login1.Manager";
constexpr const char* managerPath = "/org/freedesktop/login1";

/// A logind that gives inhibitors, or refuses them. Serve it on the test's thread.
class Logind {
public:
    explicit Logind(const std::string& address)
    {
        static const sd_bus_vtable methods[] = {SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Inhibit", "ssss", "h", &Logind::inhibit, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
        EXPECT_GE(sd_bus_new(&bus_), 0);
        EXPECT_GE(sd_bus_set_address(bus_, address.c_str()), 0);
        EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
        EXPECT_GE(sd_bus_start(bus_), 0);
        EXPECT_GE(sd_bus_add_object_vtable(bus_, nullptr, managerPath, manager, methods, this), 0);
        EXPECT_GE(sd_bus_request_name(bus_, login, 0), 0);
    }
    ~Logind() { sd_bus_flush_close_unref(bus_); }
    Logind(const Logind&) = delete;
    Logind& operator=(const Logind&) = delete;

    void serve()
    {
        while (sd_bus_process(bus_, nullptr) > 0) { }
    }
    void prepareForSleep(int sleeping)
    {
        EXPECT_GE(sd_bus_emit_signal(bus_, managerPath, manager, "PrepareForSleep", "b", sleeping), 0);
        EXPECT_GE(sd_bus_flush(bus_), 0);
    }

    bool refuses = false;
    int asked = 0;

private:
    static int inhibit(sd_bus_message* call, void* pointer, sd_bus_error* error)
    {
        auto& self = *static_cast<Logind*>(pointer);
        ++self.asked;
        if (self.refuses) {
            return sd_bus_error_set(error, "org.freedesktop.DBus.Error.LimitsExceeded", "too many inhibitors");
        }
        return sd_bus_reply_method_return(call, "h", self.file_.get());
    }

    sd_bus* bus_ = nullptr;
    Descriptor file_{::open("/dev/null", O_RDONLY | O_CLOEXEC)};
};

struct LogindTest : test::BusTest {
    void SetUp() override
    {
        BusTest::SetUp();
        if (hasDaemon) {
            messages = std::make_unique<LogindPowerMessages>(runtime, bus, limitations);
            registration = messages->receive([this](PowerMessage message, PowerMessages::Token token) {
                heard.push_back(message);
                latest = token;
            });
        }
    }
    void serveOthers() override
    {
        if (logind) {
            logind->serve();
        }
    }
    bool limited() const { return limitations->all().count("sleep-messages") == 1; }
    void startLogind(bool refuses = false)
    {
        logind = std::make_unique<Logind>(address);
        logind->refuses = refuses;
    }

    std::unique_ptr<Logind> logind;
    std::unique_ptr<LogindPowerMessages> messages;
    std::unique_ptr<PowerMessages::Registration> registration;
    std::vector<PowerMessage> heard;
    PowerMessages::Token latest = 0;
};

TEST_F(LogindTest, ARefusedInhibitorIsAskedForAgain)
{
    startLogind(true);
    ASSERT_TRUE(serveUntil([&] { return logind->asked > 0 && limited(); }));
    EXPECT_FALSE(messages->holdsInhibitor());
    const int before = logind->asked;
    runtime.advance(60);
    ASSERT_TRUE(serveUntil([&] { return logind->asked > before; }));
    logind->refuses = false;
    ASSERT_TRUE(serveUntil([&] {
        runtime.advance(1);
        return messages->holdsInhibitor();
    }));
    EXPECT_FALSE(limited());
    const int held = logind->asked;
    runtime.advance(600);
    logind->prepareForSleep(1); // comes after whatever else was asked
    ASSERT_TRUE(serveUntil([&] { return !heard.empty(); }));
    EXPECT_EQ(logind->asked, held) << "one is enough";
}

TEST_F(LogindTest, ADescriptorThatCannotBeKeptIsNoInhibitor)
{
    startLogind();
    ASSERT_TRUE(serveUntil([&] { return messages->holdsInhibitor(); }));
    // One descriptor is left: for the one in the reply, not for a copy of it.
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    rlimit few = usual;
    few.rlim_cur = 128;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    std::vector<Descriptor> all;
    for (int next = 0; (next = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        all.push_back(Descriptor(next));
    }
    ASSERT_FALSE(all.empty());
    all.pop_back();
    logind->prepareForSleep(0); // asks for a new one
    EXPECT_TRUE(serveUntil([&] { return limited(); }));
    EXPECT_TRUE(messages->holdsInhibitor()) << "the old one";
    all.clear();
    ::setrlimit(RLIMIT_NOFILE, &usual);
    runtime.advance(60);
    EXPECT_TRUE(serveUntil([&] { return !limited(); }));
}

TEST_F(LogindTest, ALateAllowanceIsNotForTheNewLogind)
{
    startLogind();
    ASSERT_TRUE(serveUntil([&] { return messages->holdsInhibitor(); }));
    logind->prepareForSleep(1);
    ASSERT_TRUE(serveUntil([&] { return !heard.empty(); }));
    logind.reset();
    ASSERT_TRUE(serveUntil([&] { return limited(); }));
    startLogind();
    ASSERT_TRUE(serveUntil([&] { return logind->asked == 1 && !limited(); }));
    messages->allow(latest); // no wake would bring the inhibitor back
    EXPECT_TRUE(messages->holdsInhibitor());
}

} // namespace
} // namespace meridal
