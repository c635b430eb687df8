// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace meridal {

/// Announcements that reach other programs of the machine. Used on the main queue.
/// macOS: the distributed notification centre. Linux: signals on the system bus (docs/protocol.md names them).
class DistributedNotifications {
public:
    /// Destroying it ends the observation.
    class Observation {
    public:
        virtual ~Observation() = default;
    };

    virtual ~DistributedNotifications() = default;
    /// To all sessions, at once; no object and no details. Dropped where there is nobody to carry it.
    virtual void post(const std::string& name) = 0;
    [[nodiscard]] virtual std::unique_ptr<Observation> observe(
        const std::string& name, std::function<void()> handler) = 0;
};

} // namespace meridal
