// SPDX-License-Identifier: Apache-2.0
// The first byte chooses what reads the rest: a figure of a chip, lm-sensors' configuration, a formula, a table of keys, or
// the names by which a chip is known.

#include "base/Text.h"
#include "collectors/sensors/SensorKeyTable.h"
#include "platform/linux/sensors/HwmonNames.h"
#include "platform/linux/sensors/HwmonReader.h"
#include "platform/linux/sensors/SensorsConfig.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using namespace meridal;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void readConfiguration(std::string_view text)
{
    SensorsConfig config;
    config.add(text);
    for (const char* channel : {"temp1", "in0", "fan1"}) {
        const auto label = config.label("nct6775-isa-0290", channel);
        require(!label || !label->empty());
        config.isIgnored("nct6775-isa-0290", channel);
        if (const SensorsExpression* formula = config.formula("nct6775-isa-0290", channel)) {
            const auto figure = formula->evaluate(1.5);
            require(!figure || std::isfinite(*figure));
        }
    }
}

void readTable(std::string_view text)
{
    static const auto folder = std::filesystem::temp_directory_path() / ("meridal-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const auto file = folder / "sensor-keys";
    std::ofstream(file, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
    const std::string identity = "platform/coretemp.0/coretemp/temp1";
    const std::vector<SensorRecord> sensors = {
        {.key = identity, .chip = {}, .channel = {}, .label = {}, .kind = SensorKind::Temperature},
        {.key = identity, .chip = {}, .channel = {}, .label = {}, .kind = SensorKind::Fan}};
    SensorKeyTable table(file);
    const std::vector<std::string> keys = table.keysFor(sensors);
    require(keys[0].size() == 4 && keys[0][0] == 'T' && keys[1].size() == 4 && keys[1].ends_with("Ac"));
    require(table.save());
    require(SensorKeyTable(file).keysFor(sensors) == keys);
    std::filesystem::remove_all(folder);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 5) {
    case 0: {
        const auto figure = parseHwmonFigure(text);
        require(!figure || std::isfinite(*figure));
        break;
    }
    case 1:
        readConfiguration(text);
        break;
    case 2:
        if (const auto formula = SensorsExpression::parse(text)) {
            const auto figure = formula->evaluate(-3);
            require(!figure || std::isfinite(*figure));
        }
        break;
    case 3:
        readTable(text);
        break;
    default:
        for (const char* bus : {"i2c", "spi", "pci", "platform", "acpi", "hid", "mdio_bus", "scsi", "thermal", ""}) {
            require(hwmon::chipName("chip", bus, text).starts_with("chip-"));
        }
        if (text.find('\0') == std::string_view::npos) {
            hwmon::stablePath(std::string(text), [](std::string_view) { return std::nullopt; });
        }
        break;
    }
    return 0;
}
