#include "collectors/sensors/SensorAlarms.h"

#include <cmath>
#include <utility>

namespace meridal {

namespace {

bool isAbsurd(const SensorChannel& channel, double limit)
{
    constexpr double coldest = -60; // °C
    constexpr double hottest = 200;
    return channel.kind == SensorChannelKind::Temperature && (limit < coldest || limit > hottest);
}

/// Whether a critical limit is one that any warm room passes: firmware has such for zones that it does not use.
bool isNonsense(const SensorChannel& channel, double critical)
{
    constexpr double coolest = 40; // °C
    return channel.kind == SensorChannelKind::Temperature && critical < coolest;
}

/// Whether an upper limit is what a register holds that nobody has written.
bool isUnset(const SensorChannel& channel, double limit)
{
    return channel.kind == SensorChannelKind::Voltage ? limit == 0 : limit <= 0; // rails may be negative
}

/// Which limit a flag means that does not tell.
SensorAlarm likeliest(const SensorChannel& channel, std::optional<double> value)
{
    if (channel.kind == SensorChannelKind::Fan || (channel.low && !channel.high)) {
        return SensorAlarm::Low;
    }
    const bool isNearerLow =
        channel.low && channel.high && value && *value - *channel.low < std::abs(*channel.high - *value);
    return isNearerLow ? SensorAlarm::Low : SensorAlarm::High;
}

SensorAlarm compare(const SensorChannel& channel, double value)
{
    // A processor that throttles itself reads exactly its limit: only beyond it is there anything wrong.
    const bool isTooHigh = channel.critical && !channel.tellsCritical && value > *channel.critical;
    if (isTooHigh || (channel.lowCritical && value < *channel.lowCritical)) {
        return SensorAlarm::Critical;
    }
    const bool isFan = channel.kind == SensorChannelKind::Fan;
    if (channel.low && value < *channel.low && !channel.mayStandStill) {
        return SensorAlarm::Low;
    }
    return !isFan && channel.high && value > *channel.high ? SensorAlarm::High : SensorAlarm::None;
}

} // namespace

std::string_view sensorAlarmName(SensorAlarm alarm)
{
    switch (alarm) {
    case SensorAlarm::Fault:
        return "fault";
    case SensorAlarm::Critical:
        return "critical";
    case SensorAlarm::Low:
        return "low";
    case SensorAlarm::High:
        return "high";
    case SensorAlarm::None:
        break;
    }
    return "";
}

SensorFlags dropUnsetLimits(SensorChannel& channel)
{
    SensorFlags meaningless;
    if (channel.low && channel.high && *channel.high <= *channel.low) {
        channel.low.reset();
        channel.high.reset();
        meaningless.low = meaningless.high = true;
    }
    for (const auto& [limit, flag] :
        {std::pair(&channel.high, &meaningless.high), std::pair(&channel.critical, &meaningless.critical)}) {
        if (*limit && isUnset(channel, **limit)) {
            limit->reset();
            *flag = true;
        }
    }
    if (channel.critical && isNonsense(channel, *channel.critical)) {
        channel.critical.reset();
        meaningless.critical = true;
    }
    const bool isAnyLeft = channel.low || channel.high || channel.critical || channel.lowCritical;
    meaningless.any = !isAnyLeft && (meaningless.high || meaningless.critical);
    for (std::optional<double>* limit : {&channel.low, &channel.high, &channel.critical, &channel.lowCritical}) {
        if (*limit && isAbsurd(channel, **limit)) {
            limit->reset();
        }
    }
    return meaningless;
}

SensorAlarm sensorAlarm(const SensorChannel& channel, std::optional<double> value, const SensorFlags& flags)
{
    if (flags.fault) {
        return SensorAlarm::Fault;
    }
    const SensorAlarm seen = value ? compare(channel, *value) : SensorAlarm::None;
    if (flags.critical || seen == SensorAlarm::Critical) {
        return SensorAlarm::Critical;
    }
    if (seen != SensorAlarm::None) {
        return seen;
    }
    return flags.low ? SensorAlarm::Low
        : flags.high ? SensorAlarm::High
        : flags.any  ? likeliest(channel, value)
                     : SensorAlarm::None;
}

void SensorAlarms::note(const std::map<std::string, SensorFlags>& raised, double now)
{
    const bool isBelieved = lastLook_ && now - *lastLook_ <= longestGap;
    lastLook_ = now;
    std::erase_if(raised_, [now](const auto& each) { return now - each.second.at > heldFor; });
    for (const auto& [key, flags] : raised) {
        if (isBelieved || flags.fault) { // a fault is of now
            raised_.insert_or_assign(key, Raised{.flags = flags, .at = now});
        }
    }
}

SensorFlags SensorAlarms::flags(const std::string& key, double now) const
{
    const auto found = raised_.find(key);
    return found != raised_.end() && now - found->second.at <= heldFor ? found->second.flags : SensorFlags();
}

} // namespace meridal
