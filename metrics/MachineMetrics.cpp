// SPDX-License-Identifier: Apache-2.0
#include "metrics/MachineFamilies.h"
#include "metrics/MetricFamilies.h"

#include <string>

namespace meridal {

namespace {

/// One figure of each device of a part, which has them in a list or by their names; or of the part itself.
void writeFigure(MetricsWriter& writer, const Value& part, const MachineFigure& figure)
{
    const std::string_view device = deviceLabel(figure.part);
    for (auto each = part.begin(); each != part.end(); ++each) {
        const Value& figures = device.empty() ? part : *each;
        const std::string name = device.empty() ? ""
            : part.is_object()                  ? each.key()
                                                : text(figures, "name").value_or("");
        if (const auto value = number(figures, figure.entry)) {
            writer.sample({{device, name}, {figure.label, figure.value}}, *value / figure.divisor);
        }
        if (device.empty()) {
            return;
        }
    }
}

struct FileSystemFigure {
    MetricFamily family;
    const char* entry;
};

constexpr FileSystemFigure fileSystemFigures[] = {
    {{"machine_filesystem_size_bytes", MetricType::Gauge, "bytes", "Room of a file system."}, "total"},
    {{"machine_filesystem_used_bytes", MetricType::Gauge, "bytes", "Room that is taken."}, "used"},
    {{"machine_filesystem_available_bytes", MetricType::Gauge, "bytes", "Room that ordinary users have."}, "available"},
    {{"machine_filesystem_inodes", MetricType::Gauge, "", "Files that a file system has room for."}, "inodes"},
    {{"machine_filesystem_inodes_used", MetricType::Gauge, "", "Files that there are."}, "inodesUsed"},
};

struct InterfaceFigure {
    MetricFamily family;
    const char* entry;
};

constexpr InterfaceFigure interfaceFigures[] = {
    {{"machine_network_received_bytes", MetricType::Counter, "bytes", "Since the interface came up."}, "received"},
    {{"machine_network_sent_bytes", MetricType::Counter, "bytes", "Since the interface came up."}, "sent"},
};

void writeFileSystems(MetricsWriter& writer, const Value& fileSystems)
{
    for (const FileSystemFigure& figure : fileSystemFigures) {
        writer.family(figure.family);
        for (const Value& each : fileSystems) {
            writer.sample({{"mount", text(each, "mount").value_or("")}, {"device", text(each, "device").value_or("")},
                              {"type", text(each, "type").value_or("")}},
                number(each, figure.entry));
        }
    }
}

void writeInterfaces(MetricsWriter& writer, const Value& interfaces)
{
    for (const InterfaceFigure& figure : interfaceFigures) {
        writer.family(figure.family);
        for (const Value& each : interfaces) {
            if (const Value* bytes = find(each, "bytes")) {
                writer.sample({{"interface", text(each, "interface").value_or("")}}, number(*bytes, figure.entry));
            }
        }
    }
}

} // namespace

void writeMachineMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    std::string_view family;
    for (const MachineFigure& figure : machineFigures) {
        if (family != figure.family.name) {
            family = figure.family.name;
            writer.family(figure.family);
        }
        const Value* part = find(snapshot.machine, figure.part);
        if (part && part->is_structured()) {
            writeFigure(writer, *part, figure);
        }
    }
    const Value* fileSystems = find(snapshot.machine, "fileSystems");
    if (fileSystems && fileSystems->is_array()) {
        writeFileSystems(writer, *fileSystems);
    }
    const Value* list = find(snapshot.interfaces, "interfaces");
    const Value& interfaces = list ? *list : snapshot.interfaces;
    if (interfaces.is_array()) {
        writeInterfaces(writer, interfaces);
    }
}

} // namespace meridal
