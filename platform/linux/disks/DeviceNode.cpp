// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/DeviceNode.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

namespace meridal {

namespace {

constexpr unsigned commandTimeout = 20'000; ///< ms, of the kernel's own patience with the device
constexpr std::uint32_t suggestsSense = 8;  ///< driver status: sense data is there; no failure by itself

void sendScsi(int device, DeviceCommand& command, DeviceAnswer& answer)
{
    sg_io_hdr_t request{};
    request.interface_id = 'S';
    request.cmd_len = static_cast<unsigned char>(command.cdbLength);
    request.cmdp = command.cdb.data();
    request.mx_sb_len = static_cast<unsigned char>(answer.sense.size());
    request.sbp = answer.sense.data();
    request.dxfer_direction = command.dataLength > 0 ? SG_DXFER_FROM_DEV : SG_DXFER_NONE;
    request.dxfer_len = command.dataLength;
    request.dxferp = answer.data.data();
    request.timeout = commandTimeout;
    if (::ioctl(device, SG_IO, &request) < 0) {
        answer.error = errno;
        return;
    }
    answer.status = request.status;
    answer.transport = request.host_status | (request.driver_status & ~suggestsSense);
    answer.missing = static_cast<std::uint32_t>(std::max(request.resid, 0));
    answer.senseLength = request.sb_len_wr;
}

void sendNvme(int device, const DeviceCommand& command, DeviceAnswer& answer)
{
    nvme_admin_cmd request{};
    request.opcode = static_cast<__u8>(command.opcode);
    request.nsid = command.namespaceID;
    request.addr = reinterpret_cast<std::uintptr_t>(answer.data.data());
    request.data_len = command.dataLength;
    request.cdw10 = command.cdw10;
    request.timeout_ms = commandTimeout;
    const int result = ::ioctl(device, NVME_IOCTL_ADMIN_CMD, &request);
    answer.error = result < 0 ? errno : 0;
    answer.status = result > 0 ? static_cast<std::uint32_t>(result) : 0;
}

} // namespace

DeviceAnswer DeviceNode::run(DeviceCommand command)
{
    DeviceAnswer answer;
    if (!device_) {
        device_ = Descriptor(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    }
    if (!device_) {
        answer.error = errno;
    } else if (command.kind == DeviceCommand::Kind::SCSI) {
        sendScsi(device_.get(), command, answer);
    } else {
        sendNvme(device_.get(), command, answer);
    }
    return answer;
}

} // namespace meridal
