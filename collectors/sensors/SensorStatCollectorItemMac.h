#pragma once

#include "collectors/sensors/SMCDataTypes.h"
#include "collectors/sensors/SensorStatCollectorItem.h"

#include <optional>
#include <string>

namespace meridal {

/// A sensor that is an SMC key, a figure computed from several, or a named sensor service.
class SensorStatCollectorItemMac final : public SensorStatCollectorItem {
public:
    /// Where its readings come from.
    enum class Source { SMC, Service };

    SensorStatCollectorItemMac(Context& context, SensorSMCController& smc, SMCOrigin origin);

    /// The bytes of a key as a number, by its type.
    static float convertData(const SMCKeyValue& data, SMCOrigin origin) { return convertSMCData(data, origin); }

    Source source() const { return source_; }
    void setSource(Source source) { source_ = source; }
    /// Whether it is as a client of this run gave it, and not as the host or the record tells it.
    bool isClients() const { return isClients_; }
    void setIsClients(bool isClients) { isClients_ = isClients; }

    /// Makes the alternate key: the codes of the key's characters in decimal, last character first.
    void loadAlternateKey();

    // Of the interface, and called by nothing here
    /// Whether the bytes can be what the type says; they always can.
    static bool isDataValid(const SMCKeyValue&) { return true; }
    bool intelFrequencySensor() const { return intelFrequencySensor_; }
    void setIntelFrequencySensor(bool isFrequency) { intelFrequencySensor_ = isFrequency; }
    /// A fan's lower limit, from the key of its prefix and "Mn".
    void loadMinimumValue();
    /// A fan's upper limit, from the key of its prefix and "Mx"; only ever raised.
    void loadMaximumValue();

private:
    float limit(const char* suffix);

    SensorSMCController& smc_;
    SMCOrigin origin_;
    Source source_ = Source::SMC;
    bool isClients_ = false;
    bool intelFrequencySensor_ = false;
};

} // namespace meridal
