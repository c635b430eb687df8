// SPDX-License-Identifier: Apache-2.0
// Pages of a disk that answers anything at all. The first byte chooses the parser; bit 7 of it mends the checksum, which
// would else keep nearly every input out.

#include "collectors/disks/SMARTPages.h"
#include "collectors/disks/SMARTStatCollectorAttribute.h"
#include "platform/linux/disks/AtaPassThrough.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <span>

namespace {

using namespace meridal;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void checkData(const SMARTPage& page, int format)
{
    const auto data = parseSMARTData(page);
    if (!data) {
        return;
    }
    require(data->entries.size() <= 30);
    for (const SMARTDataEntry& entry : data->entries) {
        SMARTStatCollectorAttribute attribute(entry.attributeID);
        attribute.describe(describeAttribute(entry.attributeID, usualDefinitions(), {}));
        attribute.updateWithAttribute(entry, 1, 1);
        attribute.setFormat(format);
        attribute.updateWithAttribute(entry, 1, 1);
        require(entry.attributeID != 0 && std::isfinite(attribute.currentValue().formatted));
        require(!serialise(attribute.value()).empty());
    }
}

void checkHealth(const SMARTPage& page)
{
    if (const auto health = parseNVMeHealth(page)) {
        require(health->powerOnHours >= 0 && std::isfinite(health->dataWritten));
        require(!health->temperature || *health->temperature > -273);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::span<const std::uint8_t> bytes(data + 1, size - 1);
    SMARTPage page{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), page.size()), page.begin());
    if ((data[0] & 0x80U) != 0) {
        page[511] = 0;
        page[511] = static_cast<std::uint8_t>(0U - std::accumulate(page.begin(), page.end(), 0U));
    }
    switch (data[0] % 5) {
    case 0:
        checkData(page, static_cast<int>(page[363] % 20) - 1);
        break;
    case 1:
        parseSMARTThresholds(page);
        break;
    case 2:
        checkHealth(page);
        break;
    case 3:
        if (const auto identity = parseATAIdentity(page)) {
            require(!identity->model || (!identity->model->empty() && identity->model->size() <= 40 * 3));
        }
        if (const auto identity = parseNVMeIdentity(page)) {
            require(!identity->serial || !identity->serial->empty());
        }
        break;
    default:
        registersInSense(bytes);
        refusesCommand(bytes);
        break;
    }
    return 0;
}
