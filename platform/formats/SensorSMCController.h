// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "platform/formats/SMCService.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace meridal {

class Log;

/// What reading a key gives.
struct SMCKeyValue {
    std::uint32_t dataSize = 0;           ///< bytes of `bytes` that mean something
    std::array<char, 5> dataType{};       ///< four characters and a NUL; four NULs when there is no such key
    std::array<std::uint8_t, 32> bytes{}; ///< in the SMC's own order
    bool operator==(const SMCKeyValue&) const = default;
};

/// The one path to the SMC: reads the bytes of a key, writes a value to one. What the bytes mean is its callers' matter.
/// Reads report no failure: an empty type means that there is no such key, a failed read gives zeros. Main queue only.
class SensorSMCController {
public:
    /// What is known of a key once it has been asked for.
    struct KeyInfo {
        std::string type; ///< four characters, NULs when there is no such key
        int size = 0;     ///< bytes
        bool operator==(const KeyInfo&) const = default;
    };
    using KeyCache = std::unordered_map<std::string, KeyInfo>;

    /// Closed. Driver and log must outlive it; the connection is left to the system when nobody closes it.
    explicit SensorSMCController(SMCService& service, Log* log = nullptr) : service_(service), log_(log) { }
    SensorSMCController(const SensorSMCController&) = delete;
    SensorSMCController& operator=(const SensorSMCController&) = delete;

    /// Error when open already, NotFound without an SMC, otherwise what the driver says.
    IOStatus open();
    void openIfNeeded();
    void close();
    void cleanup(); ///< close(), open or not

    /// One command to the driver.
    IOStatus processInput(const SMCParamRecord& input, SMCParamRecord& output);

    /// Fills in the value. Always 0. Asks the driver for type and size once a key, then only for the bytes. Open first.
    int readKey(const std::string& key, SMCKeyValue& value);
    int dataForKey(const std::string& key, SMCKeyValue& value) { return readKey(key, value); }

    /// The names of its keys, of the first so many, in the SMC's order. One call each.
    std::vector<std::string> keys(std::size_t most);

    /// Whether the driver or the SMC failed at the latest read: its zeros are then no measurement.
    bool lastReadFailed() const { return lastReadFailed_; }
    /// Whether it was not even learnt if there is such a key. It is asked again the next time. After keys(): whether there
    /// may be more of them.
    bool lastKeyIsUnknown() const { return lastKeyIsUnknown_; }

    SMCService::Handle connection() const { return connection_; } ///< 0 while closed
    bool debug() const { return debug_; }                         ///< whether keys that are none are logged

    // Of the interface, and called by nothing here
    /// A number or its text: a float for a key of 4 bytes, otherwise a whole number in quarters (fpe2).
    IOStatus writeValue(const Value& value, const std::string& key);
    /// Exact bytes: a float for a key of 4 bytes, a whole number for one of 1, otherwise the two bytes that four
    /// hexadecimal digits spell; zeros for any other text.
    IOStatus writeRawValue(const std::string& value, const std::string& key);
    void setDebug(bool debug) { debug_ = debug; }
    const KeyCache& keyCache() const { return keyCache_; }
    void setKeyCache(KeyCache cache) { keyCache_ = std::move(cache); }

private:
    SMCParamRecord request(SMCCommand command, const std::string& key) const;
    KeyInfo infoForKey(const std::string& key);
    IOStatus prepareWrite(const std::string& key, SMCParamRecord& request);
    IOStatus write(const SMCParamRecord& request);

    SMCService& service_;
    Log* log_;
    SMCService::Handle connection_ = 0;
    bool debug_ = false;
    bool lastReadFailed_ = false;
    bool lastKeyIsUnknown_ = false;
    KeyCache keyCache_;
};

/// Four characters as the SMC's number, first in the high byte; 0 for null and for fewer than four.
std::uint32_t makeUInt32Key(const char* key);
/// The bytes of a float in the machine's own order.
void float2Bytes(std::uint8_t* bytes, float value);

} // namespace meridal
