// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/HidReports.h"

#include "platform/linux/kernel/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace meridal {

namespace {

bool isQuestion(const HidQuestion& question)
{
    constexpr std::uint32_t largestReport = 255;
    return question.isFeature <= 1 && question.report <= largestReport && question.length > 0
        && question.length <= HidBytes().data.size();
}

} // namespace

void serveHidReports(int channel, const std::filesystem::path& node)
{
    const Descriptor device(::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    const int failure = device ? 0 : errno;
    HidQuestion question;
    while (::recv(channel, &question, sizeof question, MSG_TRUNC) == static_cast<ssize_t>(sizeof question)
        && isQuestion(question)) {
        HidBytes answer;
        // The headers have the latter since Linux 5.11, older kernels refuse it.
        const unsigned number = question.isFeature != 0 ? 0x07 : 0x0A;
        answer.data[0] = static_cast<std::uint8_t>(question.report);
        const int length =
            ::ioctl(device.get(), _IOC(_IOC_WRITE | _IOC_READ, 'H', number, question.length), answer.data.data());
        answer.error = failure != 0 ? failure : (length < 0 ? errno : 0);
        answer.length = std::min(question.length, static_cast<std::uint32_t>(std::max(length, 0)));
        if (::send(channel, &answer, sizeof answer, MSG_NOSIGNAL) < 0) {
            break;
        }
    }
}

} // namespace meridal
