// SPDX-License-Identifier: Apache-2.0
#include "platform/DriveDatabaseFile.h"

#include <cstdint>
#include <fstream>
#include <system_error>

namespace meridal {

std::string readDriveDatabase(std::initializer_list<std::filesystem::path> places)
{
    constexpr std::uintmax_t largest = 4 * 1024 * 1024;
    for (const std::filesystem::path& place : places) {
        std::error_code failure;
        if (!std::filesystem::is_regular_file(place, failure)) {
            continue;
        }
        const auto size = std::filesystem::file_size(place, failure);
        std::ifstream file(place, std::ios::binary);
        if (failure || size == 0 || size > largest || !file) {
            continue;
        }
        std::string text(static_cast<std::size_t>(size), '\0');
        file.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(file.gcount()));
        if (!text.empty()) {
            return text;
        }
    }
    return {};
}

} // namespace meridal
