// SPDX-License-Identifier: Apache-2.0
#include "platform/PeripheralNames.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t addressLength = 17; // aa:bb:cc:dd:ee:ff

} // namespace

PeripheralKind kindOfName(std::string_view name)
{
    using enum PeripheralKind;
    static constexpr std::array<std::pair<std::string_view, PeripheralKind>, 14> known = {{{"keyboard", Keyboard},
        {"trackpad", Trackpad}, {"touchpad", Trackpad}, {"mouse", Mouse}, {"trackball", Mouse}, {"headphone", Headset},
        {"headset", Headset}, {"earbuds", Headset}, {"audio", Headset}, {"controller", GameController},
        {"gamepad", GameController}, {"gaming", GameController}, {"tablet", Tablet}, {"phone", Phone}}};
    const std::string text = lowercase(name);
    for (const auto& [word, kind] : known) {
        if (text.find(word) != std::string::npos) {
            return kind;
        }
    }
    return Other;
}

std::optional<std::string> hardwareAddress(std::string_view text)
{
    if (text.size() != addressLength) {
        return std::nullopt; // among them twelve digits in a row, which may be any serial number
    }
    std::string address = lowercase(text);
    for (std::size_t at = 0; at < address.size(); ++at) {
        const bool fits =
            at % 3 == 2 ? text[at] == ':' || text[at] == '-' : std::isxdigit(static_cast<unsigned char>(text[at])) != 0;
        if (!fits) {
            return std::nullopt;
        }
        address[at] = at % 3 == 2 ? ':' : address[at];
    }
    return address;
}

} // namespace meridal
