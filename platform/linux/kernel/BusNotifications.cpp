// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/BusNotifications.h"

#include <systemd/sd-bus.h>

namespace meridal {

namespace {

constexpr const char* notificationsPath = "/org/meridal/Daemon";
constexpr const char* interfaceName = "org.meridal.Daemon";
constexpr std::size_t longestMember = 255; // D-Bus

bool isDigit(char each) { return each >= '0' && each <= '9'; }

bool isAllowed(char each)
{
    return (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') || isDigit(each) || each == '_';
}

} // namespace

class BusNotifications::Entry final : public DistributedNotifications::Observation {
public:
    Entry(std::weak_ptr<Observers> list, Observers::iterator position) : list_(std::move(list)), position_(position) { }
    ~Entry() override
    {
        if (const auto list = list_.lock()) {
            list->erase(position_);
        }
    }

private:
    std::weak_ptr<Observers> list_;
    Observers::iterator position_;
};

BusNotifications::BusNotifications(std::shared_ptr<SystemBus> bus)
    : bus_(std::move(bus)), subscription_(bus_->onConnected([this](sd_bus& connection) { connected(connection); }))
{
}

BusNotifications::~BusNotifications() { sd_bus_slot_unref(match_); }

void BusNotifications::post(const std::string& name)
{
    const std::string member = memberOf(name);
    if (bus_->handle() && !member.empty()) {
        sd_bus_emit_signal(bus_->handle(), notificationsPath, interfaceName, member.c_str(), "");
        bus_->kick();
    }
}

std::unique_ptr<DistributedNotifications::Observation> BusNotifications::observe(
    const std::string& name, std::function<void()> handler)
{
    observers_->push_back(std::make_shared<const Observer>(Observer{memberOf(name), std::move(handler)}));
    return std::make_unique<Entry>(observers_, std::prev(observers_->end()));
}

std::string BusNotifications::memberOf(std::string_view name)
{
    std::string member;
    for (const char each : name) {
        if (isAllowed(each)) {
            if (member.empty() && isDigit(each)) {
                member = "_";
            }
            member += each;
        }
    }
    return member.substr(0, longestMember);
}

void BusNotifications::connected(sd_bus& bus)
{
    match_ = sd_bus_slot_unref(match_);
    sd_bus_match_signal_async(
        &bus, &match_, nullptr, notificationsPath, interfaceName, nullptr,
        [](sd_bus_message* message, void* self, sd_bus_error*) { return received(message, self); }, nullptr, this);
}

int BusNotifications::received(sd_bus_message* message, void* self)
{
    const char* member = sd_bus_message_get_member(message);
    const Observers observers = *static_cast<BusNotifications*>(self)->observers_; // a handler may end any of them
    for (const auto& observer : observers) {
        if (member && observer->member == member) {
            observer->handler();
        }
    }
    return 0;
}

} // namespace meridal
