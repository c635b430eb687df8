// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/ClientSensors.h"

#include <utility>

namespace meridal {

ClientSensors::Sensor* ClientSensors::name(const Owner& owner, const std::string& key, const Make& make)
{
    auto& sensors = users_[owner.uid];
    auto known = sensors.find(key);
    if (known == sensors.end()) {
        if (sensors.size() >= mostOfUser || count_ >= mostOfAll) {
            if (sensors.empty()) {
                users_.erase(owner.uid);
            }
            return nullptr;
        }
        known = sensors.emplace(key, Sensor{.item = make(), .clients = {}}).first;
        ++count_;
    }
    known->second.clients.insert(owner.client);
    return &known->second;
}

/// Erases those of a user of whom the function says so, which may change them.
template <typename Function>
void ClientSensors::eraseOf(std::uint32_t uid, Function mayGo)
{
    const auto user = users_.find(uid);
    if (user == users_.end()) {
        return;
    }
    for (auto each = user->second.begin(); each != user->second.end();) {
        if (mayGo(each->second)) {
            each = user->second.erase(each);
            --count_;
        } else {
            ++each;
        }
    }
    if (user->second.empty()) {
        users_.erase(user);
    }
}

void ClientSensors::forget(const Owner& owner)
{
    eraseOf(
        owner.uid, [&](Sensor& sensor) { return sensor.clients.erase(owner.client) > 0 && sensor.clients.empty(); });
}

std::vector<ClientSensors::Sensor> ClientSensors::take(const Owner& owner)
{
    std::vector<Sensor> taken;
    eraseOf(owner.uid, [&](Sensor& sensor) {
        const bool isTheirs = sensor.clients.contains(owner.client);
        if (isTheirs) {
            taken.push_back(std::move(sensor));
        }
        return isTheirs;
    });
    return taken;
}

const std::map<std::string, ClientSensors::Sensor>& ClientSensors::ofUser(std::uint32_t uid) const
{
    static const std::map<std::string, Sensor> none;
    const auto user = users_.find(uid);
    return user != users_.end() ? user->second : none;
}

} // namespace meridal
