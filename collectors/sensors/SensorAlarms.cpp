// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorAlarms.h"

#include <cmath>
#include <utility>

namespace meridal {

namespace {

bool isAbsurd(const SensorRecord& record, double limit)
{
    constexpr double coldest = -60; // °C
    constexpr double hottest = 200;
    return record.kind == SensorKind::Temperature && (limit < coldest || limit > hottest);
}

/// Whether a critical limit is one that any warm room passes: firmware has such for zones that it does not use.
bool isNonsense(const SensorRecord& record, double critical)
{
    constexpr double coolest = 40; // °C
    return record.kind == SensorKind::Temperature && critical < coolest;
}

/// Whether an upper limit is what a register holds that nobody has written.
bool isUnset(const SensorRecord& record, double limit)
{
    return record.kind == SensorKind::Voltage ? limit == 0 : limit <= 0; // rails may be negative
}

/// Which limit a flag means that does not tell.
SensorAlarm likeliest(const SensorRecord& record, std::optional<double> value)
{
    const SensorLimits& limits = record.limits;
    if (record.kind == SensorKind::Fan || (limits.low && !limits.high)) {
        return SensorAlarm::Low;
    }
    const bool isNearerLow =
        limits.low && limits.high && value && *value - *limits.low < std::abs(*limits.high - *value);
    return isNearerLow ? SensorAlarm::Low : SensorAlarm::High;
}

SensorAlarm compare(const SensorRecord& record, double value)
{
    const SensorLimits& limits = record.limits;
    // A processor that throttles itself reads exactly its limit: only beyond it is there anything wrong.
    const bool isTooHigh = limits.critical && !record.tellsCritical && value > *limits.critical;
    if (isTooHigh || (limits.lowCritical && value < *limits.lowCritical)) {
        return SensorAlarm::Critical;
    }
    const bool isFan = record.kind == SensorKind::Fan;
    if (limits.low && value < *limits.low && !record.mayStandStill) {
        return SensorAlarm::Low;
    }
    return !isFan && limits.high && value > *limits.high ? SensorAlarm::High : SensorAlarm::None;
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

SensorFlags dropUnsetLimits(SensorRecord& record)
{
    SensorLimits& limits = record.limits;
    SensorFlags meaningless;
    if (limits.low && limits.high && *limits.high <= *limits.low) {
        limits.low.reset();
        limits.high.reset();
        meaningless.low = meaningless.high = true;
    }
    for (const auto& [limit, flag] :
        {std::pair(&limits.high, &meaningless.high), std::pair(&limits.critical, &meaningless.critical)}) {
        if (*limit && isUnset(record, **limit)) {
            limit->reset();
            *flag = true;
        }
    }
    if (limits.critical && isNonsense(record, *limits.critical)) {
        limits.critical.reset();
        meaningless.critical = true;
    }
    const bool isAnyLeft = limits.low || limits.high || limits.critical || limits.lowCritical;
    meaningless.any = !isAnyLeft && (meaningless.high || meaningless.critical);
    for (std::optional<double>* limit : {&limits.low, &limits.high, &limits.critical, &limits.lowCritical}) {
        if (*limit && isAbsurd(record, **limit)) {
            limit->reset();
        }
    }
    return meaningless;
}

SensorFlags meant(SensorFlags told, const SensorFlags& meaningless)
{
    told.any = told.any && !meaningless.any;
    told.low = told.low && !meaningless.low;
    told.high = told.high && !meaningless.high;
    told.critical = told.critical && !meaningless.critical;
    return told;
}

SensorAlarm sensorAlarm(const SensorRecord& record, std::optional<double> value, const SensorFlags& flags)
{
    if (flags.fault) {
        return SensorAlarm::Fault;
    }
    const SensorAlarm seen = value ? compare(record, *value) : SensorAlarm::None;
    if (flags.critical || seen == SensorAlarm::Critical) {
        return SensorAlarm::Critical;
    }
    if (seen != SensorAlarm::None) {
        return seen;
    }
    return flags.low ? SensorAlarm::Low
        : flags.high ? SensorAlarm::High
        : flags.any  ? likeliest(record, value)
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
