// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/sensors/KeptSensors.h"
#include "collectors/sensors/SensorStatCollectorItemMac.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace meridal {

/// The sensors that ordinary users' clients named: each lasts as long as one of the clients that named it, is there for
/// clients of its user alone, and is not recorded. Whoever may connect may name what comes to their mind, so their number is
/// bounded, by user and altogether. Main queue only.
class ClientSensors {
public:
    /// Who named a sensor: the user, and which of the user's clients; any address will do that no other has meanwhile.
    struct Owner {
        std::uint32_t uid = 0;
        const void* client = nullptr;
    };
    struct Sensor {
        std::shared_ptr<SensorStatCollectorItemMac> item;
        SensorRequest request = SensorRequest::Sensors;
        std::set<const void*> clients;
    };
    using Make = std::function<std::shared_ptr<SensorStatCollectorItemMac>()>;

    static constexpr std::size_t mostOfUser = 512;
    static constexpr std::size_t mostOfAll = 1024;

    /// The sensor that a client names, made where its user has none of that key; null when there are too many.
    Sensor* name(const Owner& owner, const std::string& key, const Make& make);
    /// Lets go of what a client named and no other client of its user.
    void forget(const Owner& owner);
    /// Takes all that a client named away from its user, whoever else named it, too.
    std::vector<Sensor> take(const Owner& owner);

    bool empty() const { return count_ == 0; }
    /// What clients of this user named, by key.
    const std::map<std::string, Sensor>& ofUser(std::uint32_t uid) const;
    /// Calls a function with the item of each.
    template <typename Function>
    void forEach(Function function) const
    {
        for (const auto& [uid, sensors] : users_) {
            for (const auto& [key, sensor] : sensors) {
                function(sensor.item);
            }
        }
    }

private:
    template <typename Function>
    void eraseOf(std::uint32_t uid, Function mayGo);

    std::map<std::uint32_t, std::map<std::string, Sensor>> users_;
    std::size_t count_ = 0;
};

} // namespace meridal
