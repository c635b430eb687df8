// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/Rfkill.h"

#include "platform/linux/kernel/Descriptor.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/rfkill.h>
#include <string>
#include <unistd.h>

namespace meridal {

Result<void> Rfkill::toggle()
{
    int radios = 0;
    bool isOn = false;
    bool heldBySwitch = false;
    for (const std::string& name : folder_.list("sys/class/rfkill")) {
        const std::string radio = "sys/class/rfkill/" + name;
        if (folder_.readLine(radio + "/type") != "wlan") {
            continue;
        }
        ++radios;
        const bool hard = folder_.readLine(radio + "/hard") == "1";
        heldBySwitch = heldBySwitch || hard;
        isOn = isOn || (!hard && folder_.readLine(radio + "/soft") == "0");
    }
    if (radios == 0) {
        return unexpected(ErrorCode::NotFound, "this machine has no Wi-Fi");
    }
    const auto told = block(isOn);
    if (told && !isOn && heldBySwitch) {
        return unexpected(ErrorCode::Unavailable, "a switch on the machine keeps its Wi-Fi off");
    }
    return told;
}

Result<void> Rfkill::block(bool blocked)
{
    const Descriptor device(::open(folder_.path("dev/rfkill").c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK));
    rfkill_event change{};
    change.type = RFKILL_TYPE_WLAN;
    change.op = RFKILL_OP_CHANGE_ALL;
    change.soft = blocked ? 1 : 0;
    if (!device || ::write(device.get(), &change, RFKILL_EVENT_SIZE_V1) != RFKILL_EVENT_SIZE_V1) {
        return unexpected(ErrorCode::Unavailable, std::string("/dev/rfkill: ") + std::strerror(errno));
    }
    return {};
}

} // namespace meridal
