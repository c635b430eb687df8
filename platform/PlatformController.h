// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/PlatformMac.h"
#include "platform/PlatformRegistry.h"

#include <memory>
#include <optional>
#include <string>

namespace meridal {

struct Context;

/// Knows which machine this is and holds the platform object for it. Immutable once made.
class PlatformController {
public:
    /// The context and its host must outlive it.
    explicit PlatformController(Context& context, const PlatformRegistry& registry = platformRegistry());

    /// The instance of this process, on Context::shared().
    static const PlatformController& sharedPlatformController();

    /// Whether this is another vendor's machine, with an SMC that is emulated or none: its fans have names of their own.
    bool fauxMac() const { return fauxMac_; }
    const PlatformMac& currentPlatform() const { return *currentPlatform_; }
    const std::optional<std::string>& modelIdentifier() const { return modelIdentifier_; }
    /// A "MacBook..." of any kind; for other models, what the firmware says of the chassis.
    bool isLaptop() const;

private:
    std::unique_ptr<PlatformMac> loadCurrentPlatform(Context& context, const PlatformRegistry& registry) const;

    std::optional<std::string> modelIdentifier_;
    std::optional<bool> chassisIsPortable_;
    bool fauxMac_ = false;
    std::unique_ptr<PlatformMac> currentPlatform_;
};

} // namespace meridal
