// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/sensors/SensorStatCollectorItem.h"

#include <string>

namespace meridal {

/// A sensor that is an SMC key, a figure computed from several, or a named sensor service.
class SensorStatCollectorItemMac final : public SensorStatCollectorItem {
public:
    /// Where its readings come from.
    enum class Source { SMC, Service };

    using SensorStatCollectorItem::SensorStatCollectorItem;

    Source source() const { return source_; }
    void setSource(Source source) { source_ = source; }
    /// Whether it is as a client of this run gave it, and not as the host or the record tells it.
    bool isClients() const { return isClients_; }
    void setIsClients(bool isClients) { isClients_ = isClients; }

    /// Makes the alternate key: the codes of the key's characters in decimal, last character first.
    void loadAlternateKey()
    {
        std::string codes;
        for (const char character : key().value_or("")) {
            codes.insert(0, std::to_string(static_cast<unsigned char>(character)));
        }
        setAlternateKey(codes);
    }

    // Of the interface, and called by nothing here
    bool intelFrequencySensor() const { return intelFrequencySensor_; }
    void setIntelFrequencySensor(bool isFrequency) { intelFrequencySensor_ = isFrequency; }

private:
    Source source_ = Source::SMC;
    bool isClients_ = false;
    bool intelFrequencySensor_ = false;
};

} // namespace meridal
