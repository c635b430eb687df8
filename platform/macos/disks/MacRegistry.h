#pragma once

#include "platform/host/Registry.h"

namespace meridal {

/// The I/O registry: entries are services, with the properties that their drivers publish.
class MacRegistry final : public Registry {
public:
    std::vector<RegistryEntryPtr> entriesWithTrue(std::string_view property) override;
    /// Block storage drivers that come and go, and media that come.
    std::unique_ptr<Observation> observeDisks(std::function<void()> changed) override;
};

} // namespace meridal
