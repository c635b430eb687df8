#include "platform/NetworkStatisticsMessages.h"

#include <cstdint>
#include <cstdlib>

/// The first byte chooses the release, the rest is what the kernel sent; and what a client of the kernel's side sends.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const auto format = static_cast<meridal::StatisticsFormat>(data[0] % 6);
    const std::span<const std::uint8_t> bytes(data + 1, size - 1);
    meridal::StatisticsMessages messages(format, bytes);
    std::size_t count = 0;
    while (messages.next()) {
        ++count;
    }
    if (count > size / 16) { // a message has a header
        std::abort();
    }
    static_cast<void>(meridal::parseStatisticsRequest(format, bytes));
    return 0;
}
