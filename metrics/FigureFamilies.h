// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsWriter.h"

#include <string_view>

namespace meridal {

// Figures that are both told now and recorded: one table each, for those who scrape and for those who take the record, so that
// both have the same names and labels.

inline constexpr double fromPercent = 100;

/// Sensors of one kind.
struct SensorFamily {
    std::string_view kind; ///< of sensors.list
    std::string_view unit; ///< of history.series
    MetricFamily family;
    MetricFamily limit; ///< no name: none has any
    double divisor = 1; ///< from the daemon's unit to the base unit
};

inline constexpr SensorFamily sensorFamilies[] = {
    {"temperature", "°C", {"sensor_celsius", MetricType::Gauge, "celsius", "Temperature of a sensor."},
        {"sensor_limit_celsius", MetricType::Gauge, "celsius", "Temperature that is too low, too high or critical."}},
    {"fan", "rpm", {"fan_rpm", MetricType::Gauge, "rpm", "Turns of a fan a minute."},
        {"fan_limit_rpm", MetricType::Gauge, "rpm", "Turns a minute that are too few or too many."}},
    {"voltage", "V", {"sensor_volts", MetricType::Gauge, "volts", "Voltage of a sensor."},
        {"sensor_limit_volts", MetricType::Gauge, "volts", "Voltage that is too low, too high or critical."}},
    {"current", "A", {"sensor_amperes", MetricType::Gauge, "amperes", "Current of a sensor."},
        {"sensor_limit_amperes", MetricType::Gauge, "amperes", "Current that is too low, too high or critical."}},
    {"power", "W", {"sensor_watts", MetricType::Gauge, "watts", "Power of a sensor, the mean of seconds."},
        {"sensor_limit_watts", MetricType::Gauge, "watts", "Power that is too low, too high or critical."}},
    {"humidity", "%", {"sensor_humidity_ratio", MetricType::Gauge, "ratio", "Relative humidity."}, {}, fromPercent},
};

inline constexpr MetricFamily diskCelsiusFamily = {
    "disk_celsius", MetricType::Gauge, "celsius", "Temperature of a disk that is awake, as of its latest reading."};
inline constexpr MetricFamily diskLifeFamily = {
    "disk_life_used_ratio", MetricType::Gauge, "ratio", "Rated life of a disk that is used up; may pass 1."};
inline constexpr MetricFamily batteryChargeFamily = {
    "battery_charge_ratio", MetricType::Gauge, "ratio", "Charge of a battery."};
inline constexpr MetricFamily batteryWattsFamily = {
    "battery_watts", MetricType::Gauge, "watts", "Power into a battery; negative while it drains."};
inline constexpr MetricFamily pressureFamily = {
    "pressure_ratio", MetricType::Gauge, "ratio", "Time in which some work, or all of it, waited for a resource."};

struct PressureFigure {
    std::string_view entry; ///< of machine.state, and the column of the series "pressure"; in %
    std::string_view resource;
    std::string_view kind;
};
inline constexpr PressureFigure pressureFigures[] = {{"cpusome", "cpu", "some"}, {"memorysome", "memory", "some"},
    {"memoryfull", "memory", "full"}, {"iosome", "io", "some"}, {"iofull", "io", "full"}};

} // namespace meridal
