// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/SMCService.h"
#include "platform/formats/SensorServices.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal::test {

/// An SMC whose keys a test writes by hand. It keeps every record that it is sent.
class FakeSMCService final : public SMCService {
public:
    struct Key {
        std::string type = {};                ///< four characters
        std::vector<std::uint8_t> bytes = {}; ///< as many as the key has
        bool readFails = false;               ///< the driver fails to read it, and the output stays as it was
        std::uint8_t infoResult = 0;          ///< what the SMC says when asked what the key is
    };

    void set(const std::string& key, std::string type, std::vector<std::uint8_t> bytes)
    {
        keys[key] = Key{.type = std::move(type), .bytes = std::move(bytes)};
    }
    /// A key of type "flt ".
    void setFloat(const std::string& key, float value)
    {
        set(key, "flt ", std::vector<std::uint8_t>(sizeof value));
        std::memcpy(keys[key].bytes.data(), &value, sizeof value);
    }
    static std::uint32_t packed(std::string_view text)
    {
        std::uint32_t number = 0;
        for (const char c : text.substr(0, 4)) {
            number = number << 8 | static_cast<std::uint8_t>(c);
        }
        return number;
    }
    /// How often a command was sent.
    std::ptrdiff_t count(SMCCommand command) const
    {
        return std::count_if(sent.begin(), sent.end(),
            [&](const auto& record) { return record.command == static_cast<std::uint8_t>(command); });
    }

    bool hasCome() override { return std::exchange(come, false); }
    /// Its driver matches.
    void arrive() { present = come = true; }
    Handle findService(std::string_view serviceClass) override
    {
        ++finds;
        return present && serviceClass == "AppleSMC" ? 7 : 0;
    }
    void releaseService(Handle) override { ++releases; }
    IOStatus openService(Handle, std::uint32_t type, Handle& connection) override
    {
        openedType = type;
        connection = openStatus == IOStatus::Success ? ++lastConnection : connection;
        return openStatus;
    }
    IOStatus closeService(Handle connection) override
    {
        closed.push_back(connection);
        return IOStatus::Success;
    }
    IOStatus callScalarMethod(Handle connection, std::uint32_t selector) override
    {
        scalarCalls.emplace_back(connection, selector);
        return IOStatus::Success;
    }
    IOStatus callStructMethod(
        Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output) override
    {
        sent.push_back(input);
        if (connection == 0 || selector != 2 || isBusy || (busyCalls > 0 && busyCalls-- > 0)) {
            return IOStatus::Error;
        }
        const auto command = static_cast<SMCCommand>(input.command);
        const bool isByIndex = command == SMCCommand::ReadKeyAtIndex;
        const auto entry = isByIndex
            ? std::next(keys.begin(), static_cast<std::ptrdiff_t>(std::min<std::size_t>(input.data32, keys.size())))
            : std::find_if(keys.begin(), keys.end(), [&](const auto& each) { return packed(each.first) == input.key; });
        if (entry == keys.end()) {
            output.result = static_cast<std::uint8_t>(isByIndex ? SMCResult::BadIndex : SMCResult::KeyNotFound);
            return IOStatus::Success;
        }
        output.key = packed(entry->first);
        return answer(entry->second, command, input, output);
    }

    std::map<std::string, Key> keys;
    std::vector<SMCParamRecord> sent; ///< oldest first
    std::vector<std::pair<Handle, std::uint32_t>> scalarCalls;
    std::vector<Handle> closed;
    bool present = true;
    bool come = true;    ///< since it was asked the last time
    bool isBusy = false; ///< the driver fails to carry any command
    int busyCalls = 0;   ///< or the next so many
    IOStatus openStatus = IOStatus::Success;
    IOStatus writeStatus = IOStatus::Success;
    std::uint32_t openedType = 0;
    Handle lastConnection = 40;
    int finds = 0;
    int releases = 0;

private:
    IOStatus answer(Key& key, SMCCommand command, const SMCParamRecord& input, SMCParamRecord& output) const
    {
        if (command == SMCCommand::ReadKeyInfo) {
            output.result = key.infoResult;
            output.dataSize = key.infoResult == 0 ? static_cast<std::uint32_t>(key.bytes.size()) : 0;
            output.dataType = key.infoResult == 0 ? packed(key.type) : 0;
        } else if (command == SMCCommand::ReadKey && key.readFails) {
            return IOStatus::Error;
        } else if (command == SMCCommand::ReadKey) {
            std::copy(key.bytes.begin(), key.bytes.end(), output.bytes.begin());
        } else if (command == SMCCommand::WriteKey && writeStatus == IOStatus::Success) {
            std::copy_n(input.bytes.begin(), key.bytes.size(), key.bytes.begin());
        }
        return command == SMCCommand::WriteKey ? writeStatus : IOStatus::Success;
    }
};

/// Sensor services that a test describes, by usage page and usage.
class FakeSensorServices final : public SensorServices {
public:
    std::vector<SensorServiceReading> read(const SensorServiceQuery& query) override
    {
        asked.push_back(query);
        return late ? std::vector<SensorServiceReading>() : services[{query.usagePage, query.usage}];
    }
    bool isLate() const override { return late; }

    std::map<std::pair<std::uint32_t, std::uint32_t>, std::vector<SensorServiceReading>> services;
    std::vector<SensorServiceQuery> asked;
    bool late = false;
};

} // namespace meridal::test
