// SPDX-License-Identifier: Apache-2.0
#include "metrics/FigureFamilies.h"
#include "metrics/MetricFamilies.h"

#include <functional>
#include <string>

namespace meridal {

namespace {

struct DiskFigure {
    MetricFamily family;
    const char* entry;
    double divisor = 1;
    bool isOfLog = false; ///< which NVMe disks keep
};

constexpr DiskFigure diskFigures[] = {
    {diskLifeFamily, "wear", fromPercent},
    {{"disk_spare_ratio", MetricType::Gauge, "ratio", "Spare memory that a disk has left."}, "availableSpare",
        fromPercent, true},
    {{"disk_spare_threshold_ratio", MetricType::Gauge, "ratio", "Spare memory below which a disk has failed."},
        "spareThreshold", fromPercent, true},
    {{"disk_powered_on_seconds", MetricType::Counter, "seconds", "Time that a disk has been on in its life."},
        "powerOn"},
    {{"disk_power_cycles", MetricType::Counter, "", "How often a disk was switched on in its life."}, "powerCycles"},
    {{"disk_media_errors", MetricType::Counter, "", "Errors of a disk's memory in its life."}, "mediaErrors", 1, true},
    {{"disk_unsafe_shutdowns", MetricType::Counter, "", "How often a disk lost power at work."}, "unsafeShutdowns", 1,
        true},
    {{"disk_read_bytes", MetricType::Counter, "bytes", "What was read from a disk in its life."}, "bytesRead"},
    {{"disk_written_bytes", MetricType::Counter, "bytes", "What was written to a disk in its life."}, "bytesWritten"},
    {{"disk_reading_timestamp_seconds", MetricType::Gauge, "seconds", "When the disk was read, since 1970."}, "time"},
};

void writeInfo(MetricsWriter& writer, const Value& disk, const std::string& key)
{
    const auto word = [&disk](const char* entry) { return text(disk, entry).value_or(""); };
    writer.sample({{"disk", key}, {"model", word("model")}, {"serial", word("serial")}, {"firmware", word("firmware")},
                      {"kind", word("kind")}, {"device", word("bsd")}},
        1);
}

struct AttributeFigure {
    MetricFamily family;
    const char* entry;
    bool isOfThreshold = false; ///< tells nothing without one, which most attributes lack
};

constexpr AttributeFigure attributeFigures[] = {
    {{"smart_attribute_raw", MetricType::Gauge, "", "Raw figure of a SMART attribute, as its format reads it."},
        "value"},
    {{"smart_attribute_value", MetricType::Gauge, "", "What an attribute's state comes to; higher is better."},
        "current", true},
    {{"smart_attribute_threshold", MetricType::Gauge, "", "Value at which an attribute has failed."}, "threshold",
        true},
};

using DiskWriter = std::function<void(const Value& disk, const std::string& key)>;

void forEachDisk(const Value& disks, const DiskWriter& write)
{
    for (const Value& disk : disks) {
        if (const auto key = text(disk, "key")) {
            write(disk, *key);
        }
    }
}

void writeAttributes(MetricsWriter& writer, const Value& disks)
{
    for (const AttributeFigure& figure : attributeFigures) {
        writer.family(figure.family);
        forEachDisk(disks, [&](const Value& disk, const std::string& key) {
            const Value* attributes = find(disk, "attributes");
            for (const Value& attribute : attributes && attributes->is_array() ? *attributes : Value::array()) {
                const auto id = integer(attribute, "id");
                if (id && (!figure.isOfThreshold || number(attribute, "threshold").value_or(0) > 0)) {
                    writer.sample(
                        {{"disk", key}, {"id", std::to_string(*id)}, {"name", text(attribute, "name").value_or("")}},
                        number(attribute, figure.entry));
                }
            }
        });
    }
}

} // namespace

void writeDiskMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    if (!snapshot.disks.is_array()) {
        return;
    }
    const Value& disks = snapshot.disks;
    writer.family({.name = "disk", .type = MetricType::Info, .help = "What a disk is; its device is that of now."});
    forEachDisk(disks, [&](const Value& disk, const std::string& key) { writeInfo(writer, disk, key); });
    writer.family({.name = "disk_healthy", .help = "Whether a disk, or its attributes, say that it is well."});
    forEachDisk(disks, [&](const Value& disk, const std::string& key) {
        const Value* healthy = find(disk, "healthy");
        if (healthy && healthy->is_boolean()) {
            writer.sample({{"disk", key}}, *healthy == true ? 1.0 : 0.0);
        }
    });
    writer.family({.name = "disk_state", .help = "Whether a disk could be asked, and why not."});
    forEachDisk(disks, [&](const Value& disk, const std::string& key) {
        if (const auto state = text(disk, "state")) {
            writer.sample({{"disk", key}, {"state", *state}}, 1);
        }
    });
    writer.family(diskCelsiusFamily);
    forEachDisk(disks, [&](const Value& disk, const std::string& key) {
        if (text(disk, "state") == "awake") { // what slept an hour ago is as warm as the room by now
            writer.sample({{"disk", key}}, number(disk, "temperature"));
        }
    });
    for (const DiskFigure& figure : diskFigures) {
        writer.family(figure.family);
        forEachDisk(disks, [&](const Value& disk, const std::string& key) {
            const Value* part = figure.isOfLog ? find(disk, "log") : &disk;
            if (const auto value = part ? number(*part, figure.entry) : std::nullopt) {
                writer.sample({{"disk", key}}, *value / figure.divisor);
            }
        });
    }
    writeAttributes(writer, disks);
}

} // namespace meridal
