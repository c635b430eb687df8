// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/NetworkStatisticsSources.h"

#include <cstdint>
#include <cstdlib>

/// The first byte chooses the release, the rest is what the kernel sent. No more sources come of it than messages, and what
/// has ended is told once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::span<const std::uint8_t> bytes(data + 1, size - 1);
    meridal::StatisticsSources sources(
        static_cast<meridal::StatisticsFormat>(data[0] % 6), [](std::span<const std::uint8_t>) {});
    sources.received(bytes, 1);
    const auto count = sources.read().size();
    if (count > size / 16) { // a message has a header
        std::abort();
    }
    for (const meridal::CountedConnection& connection : sources.read()) {
        if (connection.id == 0 || connection.hasEnded) {
            std::abort();
        }
    }
    return 0;
}
