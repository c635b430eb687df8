// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/GraphicsUnits.h"
#include "platform/linux/kernel/KeptFile.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// The cards of the kernel's graphics subsystem (DRM), by what their drivers tell in sysfs: amdgpu how busy they are, their
/// memory and clock, i915 and xe how long they slept and their clock, all others that they are there.
class DrmGraphics final : public GraphicsUnits {
public:
    explicit DrmGraphics(const std::filesystem::path& root) : root_(root) { }

    const std::vector<GraphicsRecord>& read(double monotonicTime) override;

private:
    struct Card {
        GraphicsRecord record; ///< what stays the same, and figures while they are read
        std::optional<KeptFile> powerState;
        std::optional<KeptFile> busy;   ///< %
        std::optional<KeptFile> asleep; ///< ms
        std::optional<KeptFile> memoryUsed;
        std::optional<KeptFile> frequency;
        std::uint64_t frequencyUnit = 1; ///< Hz
        bool mayFallAsleep = false;      ///< its power is managed, and it shows nothing
        double leftAloneUntil = 0;       ///< monotonic s
    };

    void findCards();
    Card lookAt(const std::string& name) const;
    std::optional<KeptFile> fileOf(std::initializer_list<std::string> candidates) const;
    bool showsSomething(const std::string& name) const;
    void readFigures(Card& card, double monotonicTime) const;

    RootFolder root_;
    std::map<std::string, Card> cards_; ///< by name
    std::optional<double> lastFound_;   ///< monotonic s
    std::vector<GraphicsRecord> records_;
};

} // namespace meridal
