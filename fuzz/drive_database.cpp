// SPDX-License-Identifier: Apache-2.0
// A database of drives that says anything at all. On macOS its file belongs to whoever installed it, and the daemon reads it
// as root. The first line is the model of a disk, the second its firmware, and the rest the database.

#include "collectors/disks/AttributeMeanings.h"
#include "collectors/disks/SMARTStatCollectorAttribute.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace meridal;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

std::string line(std::string_view& text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string first(text.substr(0, std::min<std::size_t>(end, 40)));
    text.remove_prefix(std::min(end + 1, text.size()));
    return first;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string model = line(text);
    const std::string firmware = line(text);
    DriveDatabaseReader reader(text);
    std::size_t entries = 0;
    while (reader.next()) {
        ++entries;
    }
    require(entries <= text.size() / 2);
    const AttributeDefinitions definitions = definitionsFor(text, model, firmware);
    for (const auto& [attributeID, definition] : definitions.attributes) {
        SMARTStatCollectorAttribute attribute(attributeID);
        attribute.describe(describeAttribute(attributeID, definitions, {.spins = false}));
        attribute.updateWithAttribute(
            {.attributeID = attributeID, .current = 93, .worst = 92, .raw = {1, 2, 3, 4, 5, 6}, .reserved = 7}, 1, 1);
        require(std::isfinite(attribute.currentValue().formatted) && !serialise(attribute.value()).empty());
        const auto used = attribute.lifeUsed();
        require(!used || (*used >= 0 && *used <= 255));
        const auto degrees = attribute.temperature();
        require(!degrees || isDiskTemperature(*degrees));
    }
    return 0;
}
