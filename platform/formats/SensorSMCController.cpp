// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/SensorSMCController.h"

#include "base/Log.h"
#include "base/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <locale>
#include <sstream>
#include <string_view>

namespace meridal {

namespace {

constexpr const char* serviceClass = "AppleSMC";
constexpr std::uint32_t connectionType = 1;
constexpr std::uint32_t openMethod = 0;
constexpr std::uint32_t closeMethod = 1;
constexpr std::uint32_t commandMethod = 2;
/// What the driver has always been sent as the size in a question for type and size.
constexpr std::uint32_t sizeInKeyInfo = 2;

/// Keys that clients make up must not fill the memory; beyond these a key costs its second call every time.
constexpr std::size_t mostCachedKeys = 4096;
constexpr std::size_t longestCachedKey = 64;

std::string typeText(std::uint32_t type)
{
    std::string text(4, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(type >> (24 - 8 * i) & 0xFF);
    }
    return text;
}

/// The number that a text starts with, 0 when it does not; the same in every locale.
double leadingDouble(const std::string& text)
{
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    double number = 0;
    stream >> number;
    return std::isfinite(number) ? number : 0;
}

double asDouble(const Value& value)
{
    if (value.is_boolean()) {
        return value.get<bool>() ? 1 : 0;
    }
    if (value.is_number()) {
        const double number = value.get<double>();
        return std::isfinite(number) ? number : 0;
    }
    return value.is_string() ? leadingDouble(value.get_ref<const std::string&>()) : 0;
}

std::int32_t intValue(double number)
{
    constexpr double least = std::numeric_limits<std::int32_t>::min();
    constexpr double most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(number, least, most)); // rounds toward zero
}

float floatValue(double number)
{
    constexpr double most = std::numeric_limits<float>::max();
    return static_cast<float>(std::clamp(number, -most, most));
}

std::uint32_t hexDigit(char c)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const std::size_t digit = digits.find(lower);
    return digit == std::string_view::npos ? 16 : static_cast<std::uint32_t>(digit);
}

/// Two characters as a base-16 number, as far as they are digits.
std::uint8_t hexByte(std::string_view two)
{
    std::uint32_t number = 0;
    for (const char c : two.substr(0, 2)) {
        const std::uint32_t digit = hexDigit(c);
        if (digit > 15) {
            break;
        }
        number = number * 16 + digit;
    }
    return static_cast<std::uint8_t>(number);
}

} // namespace

IOStatus SensorSMCController::open()
{
    if (connection_ != 0) {
        return IOStatus::Error;
    }
    const SMCService::Handle service = service_.findService(serviceClass);
    if (service == 0) {
        return IOStatus::NotFound;
    }
    const IOStatus opened = service_.openService(service, connectionType, connection_);
    service_.releaseService(service);
    if (opened != IOStatus::Success || connection_ == 0) {
        connection_ = 0;
        return IOStatus::Error;
    }
    return service_.callScalarMethod(connection_, openMethod);
}

void SensorSMCController::openIfNeeded()
{
    if (connection_ == 0) {
        open();
    }
}

void SensorSMCController::close()
{
    if (connection_ != 0) {
        cleanup();
    }
}

void SensorSMCController::cleanup()
{
    service_.callScalarMethod(connection_, closeMethod);
    service_.closeService(connection_);
    connection_ = 0;
}

IOStatus SensorSMCController::processInput(const SMCParamRecord& input, SMCParamRecord& output)
{
    return service_.callStructMethod(connection_, commandMethod, input, output);
}

SMCParamRecord SensorSMCController::request(SMCCommand command, const std::string& key) const
{
    SMCParamRecord record;
    record.command = static_cast<std::uint8_t>(command);
    record.key = makeUInt32Key(key.c_str());
    if (record.key == 0 && debug_ && log_) {
        log_->info(fmt::format("error converting key - {}", std::string_view(key).substr(0, longestCachedKey)));
    }
    return record;
}

SensorSMCController::KeyInfo SensorSMCController::infoForKey(const std::string& key)
{
    lastKeyIsUnknown_ = false;
    if (const auto entry = keyCache_.find(key); entry != keyCache_.end()) {
        return entry->second;
    }
    SMCParamRecord input = request(SMCCommand::ReadKeyInfo, key);
    input.dataSize = sizeInKeyInfo;
    SMCParamRecord output;
    const IOStatus status = processInput(input, output);
    KeyInfo info{.type = typeText(output.dataType), .size = static_cast<int>(output.dataSize)};
    // Only what the SMC says is remembered: one that is busy, as at the start, would take the key away for ever.
    lastKeyIsUnknown_ = status != IOStatus::Success
        || (output.result != static_cast<std::uint8_t>(SMCResult::Success)
            && output.result != static_cast<std::uint8_t>(SMCResult::KeyNotFound));
    if (!lastKeyIsUnknown_ && keyCache_.size() < mostCachedKeys && key.size() <= longestCachedKey) {
        keyCache_.emplace(key, info);
    }
    return info;
}

int SensorSMCController::readKey(const std::string& key, SMCKeyValue& value)
{
    const KeyInfo info = infoForKey(key);
    value.dataSize = static_cast<std::uint32_t>(info.size);
    value.dataType = {};
    std::copy_n(info.type.begin(), std::min<std::size_t>(info.type.size(), 4), value.dataType.begin());
    SMCParamRecord input = request(SMCCommand::ReadKey, key);
    input.dataSize = value.dataSize;
    SMCParamRecord output;
    const IOStatus status = processInput(input, output);
    lastReadFailed_ = status != IOStatus::Success || output.result != static_cast<std::uint8_t>(SMCResult::Success);
    value.bytes = output.bytes;
    return 0;
}

std::vector<std::string> SensorSMCController::keys(std::size_t most)
{
    std::vector<std::string> all;
    lastKeyIsUnknown_ = false;
    for (std::uint32_t index = 0; index < most; ++index) {
        SMCParamRecord input;
        input.command = static_cast<std::uint8_t>(SMCCommand::ReadKeyAtIndex);
        input.data32 = index;
        SMCParamRecord output;
        const IOStatus status = processInput(input, output);
        if (status != IOStatus::Success || output.result != static_cast<std::uint8_t>(SMCResult::Success)) {
            lastKeyIsUnknown_ =
                status != IOStatus::Success || output.result != static_cast<std::uint8_t>(SMCResult::BadIndex);
            break; // there are no more, or it is busy
        }
        all.push_back(typeText(output.key));
    }
    return all;
}

/// Asks for the key's size and makes the write request without its bytes.
IOStatus SensorSMCController::prepareWrite(const std::string& key, SMCParamRecord& record)
{
    SMCParamRecord output;
    processInput(request(SMCCommand::ReadKeyInfo, key), output);
    if (output.result == static_cast<std::uint8_t>(SMCResult::KeyNotFound)) {
        return IOStatus::NotFound;
    }
    if (output.result != static_cast<std::uint8_t>(SMCResult::Success)) {
        return IOStatus::InternalError;
    }
    record = request(SMCCommand::WriteKey, key);
    record.dataSize = output.dataSize;
    return IOStatus::Success;
}

IOStatus SensorSMCController::write(const SMCParamRecord& record)
{
    SMCParamRecord output;
    return processInput(record, output);
}

IOStatus SensorSMCController::writeValue(const Value& value, const std::string& key)
{
    SMCParamRecord record;
    if (const IOStatus refused = prepareWrite(key, record); refused != IOStatus::Success) {
        return refused;
    }
    const double number = asDouble(value);
    if (record.dataSize == 4) {
        float2Bytes(record.bytes.data(), floatValue(number));
    } else {
        const std::string quarters = fmt::format("{:04x}", static_cast<std::uint32_t>(intValue(number)) * 4U);
        record.bytes[0] = hexByte(quarters);
        record.bytes[1] = hexByte(std::string_view(quarters).substr(2));
    }
    return write(record);
}

IOStatus SensorSMCController::writeRawValue(const std::string& value, const std::string& key)
{
    SMCParamRecord record;
    if (const IOStatus refused = prepareWrite(key, record); refused != IOStatus::Success) {
        return refused;
    }
    if (record.dataSize == 4) {
        float2Bytes(record.bytes.data(), floatValue(leadingDouble(value)));
    } else if (record.dataSize == 1) {
        record.bytes[0] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(intValue(leadingDouble(value))) & 0xFF);
    } else if (value.size() == 4) {
        record.bytes[0] = hexByte(value);
        record.bytes[1] = hexByte(std::string_view(value).substr(2));
    }
    return write(record);
}

std::uint32_t makeUInt32Key(const char* key)
{
    if (!key || ::strnlen(key, 4) < 4) {
        return 0;
    }
    std::uint32_t packed = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        packed = packed << 8 | static_cast<std::uint8_t>(key[i]);
    }
    return packed;
}

void float2Bytes(std::uint8_t* bytes, float value) { std::memcpy(bytes, &value, sizeof value); }

} // namespace meridal
