#include "platform/linux/sensors/HwmonSMCService.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr SMCService::Handle theService = 1;
constexpr std::uint32_t openMethod = 0;
constexpr std::uint32_t closeMethod = 1;
constexpr std::uint32_t commandMethod = 2;

constexpr std::uint32_t packed(std::string_view code)
{
    std::uint32_t number = 0;
    for (const char c : code) {
        number = number << 8 | static_cast<std::uint8_t>(c);
    }
    return number;
}

/// Layout of a fan's description: kind, zone, location and a reserved byte, all 0 here, then the name.
constexpr std::size_t fanNameOffset = 4;
constexpr std::size_t fanNameSize = 12;
constexpr std::uint32_t fanDescriptionSize = 16;

/// A fan's name as far as a description holds it. Readers leave blanks out, so they are left out before it is cut; and
/// it is cut between characters.
std::string fanName(const HwmonSensor& fan)
{
    std::string name;
    std::copy_if(fan.label.begin(), fan.label.end(), std::back_inserter(name),
        [](char c) { return static_cast<std::uint8_t>(c) > ' '; });
    std::size_t length = std::min(name.size(), fanNameSize);
    while (length > 0 && length < name.size() && (static_cast<std::uint8_t>(name[length]) & 0xC0) == 0x80) {
        --length;
    }
    return name.substr(0, length);
}

/// "F3Ac" is fan 3, "FAAc" fan 10.
std::uint8_t fanNumber(const std::string& speedKey)
{
    const char digit = speedKey[1];
    return static_cast<std::uint8_t>(digit >= 'A' ? digit - 'A' + 10 : digit - '0');
}

} // namespace

HwmonSMCService::HwmonSMCService(std::shared_ptr<HwmonSensors> sensors) : sensors_(std::move(sensors)) { }

SMCService::Handle HwmonSMCService::findService(std::string_view serviceClass)
{
    return serviceClass == "AppleSMC" ? theService : 0;
}

IOStatus HwmonSMCService::openService(Handle service, std::uint32_t, Handle& connection)
{
    if (service != theService) {
        return IOStatus::NotFound;
    }
    connection = ++lastConnection_;
    connections_.insert(connection);
    return IOStatus::Success;
}

IOStatus HwmonSMCService::closeService(Handle connection)
{
    return connections_.erase(connection) > 0 ? IOStatus::Success : IOStatus::NotOpen;
}

IOStatus HwmonSMCService::callScalarMethod(Handle connection, std::uint32_t selector)
{
    if (!connections_.contains(connection)) {
        return IOStatus::NotOpen;
    }
    return selector == openMethod || selector == closeMethod ? IOStatus::Success : IOStatus::Error;
}

IOStatus HwmonSMCService::callStructMethod(
    Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output)
{
    if (!connections_.contains(connection)) {
        return IOStatus::NotOpen;
    }
    if (selector != commandMethod) {
        return IOStatus::Error;
    }
    refresh();
    output = {};
    output.key = input.key;
    output.result = static_cast<std::uint8_t>(answer(input, output));
    return IOStatus::Success;
}

SMCResult HwmonSMCService::answer(const SMCParamRecord& input, SMCParamRecord& output)
{
    if (input.command == static_cast<std::uint8_t>(SMCCommand::ReadKeyAtIndex)) {
        return answerKeyAtIndex(input.data32, output);
    }
    const auto entry = keys_.find(input.key);
    if (entry == keys_.end()) {
        return SMCResult::KeyNotFound;
    }
    switch (static_cast<SMCCommand>(input.command)) {
    case SMCCommand::ReadKeyInfo:
        output.dataSize = entry->second.size;
        output.dataType = entry->second.type;
        return SMCResult::Success;
    case SMCCommand::ReadKey:
        output.dataSize = entry->second.size;
        return entry->second.read(output.bytes);
    case SMCCommand::WriteKey:
        return SMCResult::NotWritable;
    default:
        return SMCResult::BadCommand;
    }
}

SMCResult HwmonSMCService::answerKeyAtIndex(std::uint32_t index, SMCParamRecord& output) const
{
    if (index >= order_.size()) {
        return SMCResult::BadIndex;
    }
    output.key = order_[index];
    return SMCResult::Success;
}

/// Makes the keys anew when chips came or went.
void HwmonSMCService::refresh()
{
    const std::uint64_t generation = sensors_->generation();
    if (generation == generation_) {
        return;
    }
    generation_ = generation;
    keys_.clear();
    int fans = 0;
    for (const HwmonSensor& sensor : sensors_->sensors()) {
        if (sensor.kind == SensorChannelKind::Fan && sensor.key.ends_with("Ac")) {
            addFan(sensor);
            fans = std::max(fans, fanNumber(sensor.key) + 1);
        } else {
            addFloat(sensor.key, [this, &sensor] { return sensors_->value(sensor); });
        }
    }
    add("FNum", "ui8 ", 1, [fans](Bytes& bytes) {
        bytes[0] = static_cast<std::uint8_t>(fans);
        return SMCResult::Success;
    });
    const std::size_t count = keys_.size() + 1;
    add("#KEY", "ui32", 4, [count](Bytes& bytes) {
        for (std::size_t i = 0; i < 4; ++i) {
            bytes[i] = static_cast<std::uint8_t>(count >> (24 - 8 * i) & 0xFF);
        }
        return SMCResult::Success;
    });
    order_.clear();
    for (const auto& [key, what] : keys_) {
        order_.push_back(key);
    }
    std::sort(order_.begin(), order_.end());
}

void HwmonSMCService::add(
    const std::string& key, const char* type, std::uint32_t size, std::function<SMCResult(Bytes&)> read)
{
    keys_.insert_or_assign(packed(key), Key{.type = packed(type), .size = size, .read = std::move(read)});
}

void HwmonSMCService::addFloat(const std::string& key, std::function<std::optional<double>()> figure)
{
    add(key, "flt ", sizeof(float), [figure = std::move(figure)](Bytes& bytes) {
        const auto known = figure();
        const float value = known ? static_cast<float>(*known) : std::numeric_limits<float>::quiet_NaN();
        std::memcpy(bytes.data(), &value, sizeof value);
        return known ? SMCResult::Success : SMCResult::Failed;
    });
}

void HwmonSMCService::addFan(const HwmonSensor& fan)
{
    const std::string prefix = fan.key.substr(0, 2);
    addFloat(fan.key, [this, &fan] { return sensors_->value(fan); });
    addFloat(prefix + "Mn", [this, &fan] { return sensors_->limit(fan, HwmonFile::Low).value_or(0); });
    addFloat(prefix + "Mx", [this, &fan] { return sensors_->limit(fan, HwmonFile::High).value_or(0); });
    add(prefix + "ID", "{fds", fanDescriptionSize, [name = fanName(fan)](Bytes& bytes) {
        std::copy(name.begin(), name.end(), bytes.begin() + fanNameOffset);
        return SMCResult::Success;
    });
}

} // namespace meridal
