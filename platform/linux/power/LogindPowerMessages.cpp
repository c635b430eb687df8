// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/LogindPowerMessages.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* logindPath = "/org/freedesktop/login1";
constexpr const char* logindInterface = "org.freedesktop.login1.Manager";
constexpr const char* sleepLimitation = "sleep-messages";
constexpr double inhibitInterval = 30; // s

LogindPowerMessages& self(void* pointer) { return *static_cast<LogindPowerMessages*>(pointer); }

} // namespace

class LogindPowerMessages::Receiver final : public PowerMessages::Registration {
public:
    explicit Receiver(std::weak_ptr<Handler> handler) : handler_(std::move(handler)) { }
    ~Receiver() override
    {
        if (const auto handler = handler_.lock()) {
            *handler = nullptr;
        }
    }

private:
    std::weak_ptr<Handler> handler_;
};

LogindPowerMessages::LogindPowerMessages(
    Runtime& runtime, std::shared_ptr<SystemBus> bus, std::shared_ptr<Limitations> limitations)
    : runtime_(runtime), bus_(std::move(bus)), limitations_(std::move(limitations))
{
    if (!bus_->handle()) {
        limitations_->set(
            sleepLimitation, "no sleep or wake is seen: systemd-logind is on the system bus, which is not there");
    }
    subscription_ = bus_->onConnected([this](sd_bus& connection) { connected(connection); });
}

LogindPowerMessages::~LogindPowerMessages()
{
    subscription_.reset();
    dropSlots();
}

std::unique_ptr<PowerMessages::Registration> LogindPowerMessages::receive(Handler handler)
{
    *handler_ = std::move(handler);
    return std::make_unique<Receiver>(handler_);
}

void LogindPowerMessages::allow(Token token)
{
    if (token == token_) { // not for an earlier sleep: this one may not be ready
        wanted_ = false;
        inhibitor_ = {};
    }
}

void LogindPowerMessages::dropSlots()
{
    sleepMatch_ = sd_bus_slot_unref(sleepMatch_);
    ownerMatch_ = sd_bus_slot_unref(ownerMatch_);
    call_ = sd_bus_slot_unref(call_);
}

void LogindPowerMessages::connected(sd_bus& bus)
{
    dropSlots();
    sd_bus_match_signal_async(
        &bus, &sleepMatch_, service, logindPath, logindInterface, "PrepareForSleep",
        [](sd_bus_message* message, void* pointer, sd_bus_error*) {
            int sleeping = 0;
            if (sd_bus_message_read(message, "b", &sleeping) >= 0) {
                self(pointer).prepareForSleep(sleeping != 0);
            }
            return 0;
        },
        nullptr, this);
    const std::string rule = std::string("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                         "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='")
        + service + "'";
    sd_bus_add_match_async(
        &bus, &ownerMatch_, rule.c_str(),
        [](sd_bus_message* message, void* pointer, sd_bus_error*) {
            self(pointer).ownerChanged(*message);
            return 0;
        },
        nullptr, this);
    wanted_ = true; // a wake may have been missed
    inhibit();
}

void LogindPowerMessages::ownerChanged(sd_bus_message& message)
{
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sd_bus_message_read(&message, "sss", &name, &before, &after) < 0) {
        return;
    }
    if (*after != '\0') {
        // A new logind may not know of the inhibitor that an earlier one gave, nor tell of the wake from a sleep that
        // the earlier one began; an allowance for that sleep must not let go of the new inhibitor.
        ++token_;
        wanted_ = true;
        inhibit();
    } else {
        retry_.reset();
        limitations_->set(sleepLimitation, "no sleep or wake is seen: systemd-logind is not running");
    }
}

void LogindPowerMessages::inhibit()
{
    retry_.reset();
    call_ = sd_bus_slot_unref(call_);
    if (!bus_->handle() || !wanted_) {
        return;
    }
    const int result = sd_bus_call_method_async(
        bus_->handle(), &call_, service, logindPath, logindInterface, "Inhibit",
        [](sd_bus_message* reply, void* pointer, sd_bus_error*) {
            self(pointer).takeInhibitor(*reply);
            return 0;
        },
        this, "ssss", "sleep", "meridald", "Notes the time and saves its figures", "delay");
    if (result < 0) {
        return retryLater(std::strerror(-result));
    }
    bus_->kick();
}

void LogindPowerMessages::takeInhibitor(sd_bus_message& reply)
{
    call_ = sd_bus_slot_unref(call_);
    if (!wanted_) {
        return; // the sleep was allowed meanwhile
    }
    if (sd_bus_message_is_method_error(&reply, nullptr) > 0) {
        const sd_bus_error* error = sd_bus_message_get_error(&reply);
        retryLater(error && error->message ? error->message : "refused");
        if (sd_bus_error_has_name(error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0) {
            retry_.reset(); // there is no logind; the bus tells when one comes
        }
        return;
    }
    int descriptor = -1; // the message's own
    if (const int result = sd_bus_message_read(&reply, "h", &descriptor); result < 0) {
        return retryLater(std::strerror(-result));
    }
    Descriptor inhibitor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
    if (!inhibitor) {
        return retryLater(std::strerror(errno));
    }
    inhibitor_ = std::move(inhibitor); // an older one is let go only now
    limitations_->clear(sleepLimitation);
}

/// An inhibitor that is already held stays.
void LogindPowerMessages::retryLater(const std::string& reason)
{
    limitations_->set(sleepLimitation, "no delay before sleep from systemd-logind: " + reason);
    retry_ = runtime_.startTimer(
        runtime_.mainQueue(), {.first = inhibitInterval, .leeway = inhibitInterval / 6}, [this] { inhibit(); });
}

void LogindPowerMessages::prepareForSleep(bool sleeping)
{
    if (sleeping) {
        deliver(PowerMessage::SystemWillSleep);
        return;
    }
    wanted_ = true;
    inhibit(); // first: the next sleep may be close
    deliver(PowerMessage::SystemHasPoweredOn);
}

void LogindPowerMessages::deliver(PowerMessage message)
{
    ++token_;
    if (*handler_) {
        (*handler_)(message, token_);
    } else if (message == PowerMessage::SystemWillSleep) {
        allow(token_); // nobody has anything to do before it
    }
}

} // namespace meridal
