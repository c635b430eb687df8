// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/SystemCallback.h"
#include "platform/macos/power/MacAdapters.h"

#include <IOKit/IOKitLib.h>
#include <IOKit/IOMessage.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <dispatch/dispatch.h>

#include <cstdint>
#include <cstdio>
#include <utility>

namespace meridal {

namespace {

class MacPowerMessages final : public PowerMessages {
public:
    explicit MacPowerMessages(std::shared_ptr<Limitations> limitations) : limitations_(std::move(limitations)) { }

    std::unique_ptr<Registration> receive(Handler handler) override;
    void allow(Token token) override;

private:
    class Receiver;

    std::shared_ptr<Limitations> limitations_;
    Receiver* receiver_ = nullptr; ///< the one that is registered
};

} // namespace

static_assert(static_cast<std::uint32_t>(PowerMessage::CanSystemSleep) == kIOMessageCanSystemSleep);
static_assert(static_cast<std::uint32_t>(PowerMessage::SystemWillSleep) == kIOMessageSystemWillSleep);
static_assert(static_cast<std::uint32_t>(PowerMessage::SystemHasPoweredOn) == kIOMessageSystemHasPoweredOn);

class MacPowerMessages::Receiver final : public PowerMessages::Registration {
public:
    Receiver(MacPowerMessages& owner, Handler handler) : owner_(owner), handler_(std::move(handler))
    {
        rootPort_ = IORegisterForSystemPower(this, &notificationPort_, &Receiver::received, &notifier_);
        if (rootPort_ == MACH_PORT_NULL) {
            owner_.limitations_->set("sleep-messages", "no sleep or wake is seen: the root power domain refused us");
            return;
        }
        IONotificationPortSetDispatchQueue(notificationPort_, dispatch_get_main_queue());
        owner_.receiver_ = this;
    }
    ~Receiver() override
    {
        if (owner_.receiver_ == this) {
            owner_.receiver_ = nullptr;
        }
        if (rootPort_ != MACH_PORT_NULL) {
            IODeregisterForSystemPower(&notifier_);
            IOServiceClose(rootPort_);
            IONotificationPortDestroy(notificationPort_);
        }
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void allow(Token token) const { IOAllowPowerChange(rootPort_, static_cast<long>(token)); }

private:
    static void received(void* self, io_service_t, natural_t type, void* argument)
    {
        const auto& receiver = *static_cast<Receiver*>(self);
        const auto token = static_cast<Token>(reinterpret_cast<std::intptr_t>(argument));
        // What the system's libraries raise below the handler ends the message and not the daemon.
        const auto raised = runCatching([&] { receiver.handler_(static_cast<PowerMessage>(type), token); });
        if (raised) {
            std::fprintf(stderr, "a message of the power domain: %s\n", raised->c_str());
        }
    }

    MacPowerMessages& owner_;
    Handler handler_;
    io_connect_t rootPort_ = MACH_PORT_NULL;
    io_object_t notifier_ = IO_OBJECT_NULL;
    IONotificationPortRef notificationPort_ = nullptr;
};

std::unique_ptr<PowerMessages::Registration> MacPowerMessages::receive(Handler handler)
{
    return std::make_unique<Receiver>(*this, std::move(handler));
}

void MacPowerMessages::allow(Token token)
{
    if (receiver_) {
        receiver_->allow(token);
    }
}

std::unique_ptr<PowerMessages> makeMacPowerMessages(std::shared_ptr<Limitations> limitations)
{
    return std::make_unique<MacPowerMessages>(std::move(limitations));
}

} // namespace meridal
