// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/BpfTrafficCounters.h"

#include "base/Runtime.h"
#include "platform/linux/traffic/BpfTrafficMap.h"
#include "platform/linux/traffic/BpfTrafficSockets.h"
#include "platform/linux/traffic/InterfaceTotals.h"

#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>

namespace meridal {

namespace {

/// Number of /proc/PID/ns/pid of processes that count pids as the kernel itself does.
constexpr ino_t firstPidNamespace = 0xEFFFFFFC;

bool hasKernelsPids(const std::filesystem::path& root)
{
    struct stat state { };
    return ::stat((root / "proc/self/ns/pid").c_str(), &state) == 0 && state.st_ino == firstPidNamespace;
}

class BpfCounting final : public TrafficCounters::Counting {
public:
    BpfCounting(std::unique_ptr<InterfaceTotals> interfaces, BpfTrafficSockets sockets)
        : interfaces_(std::move(interfaces)), sockets_(std::move(sockets)), map_(sockets_.sums(), sockets_.people())
    {
    }

    const TrafficReading& read() override
    {
        // Interfaces first: what moves in between is then not taken for nobody's.
        const InterfaceTotals::Bytes interfaces = interfaces_->read();
        sockets_.setBareInterfaces(interfaces_->bare());
        sockets_.lookAgain();
        reading_.counts.clear();
        map_.read(reading_);
        reading_.interfaceBytesReceived = interfaces.received;
        reading_.interfaceBytesSent = interfaces.sent;
        return reading_;
    }
    std::string method() const override { return sockets_.seesPackets() ? "packets" : "calls"; }

private:
    std::unique_ptr<InterfaceTotals> interfaces_;
    BpfTrafficSockets sockets_;
    BpfTrafficMap map_;
    TrafficReading reading_;
};

} // namespace

BpfTrafficCounters::BpfTrafficCounters(Runtime& runtime, BpfTrafficOptions options)
    : runtime_(runtime), options_(std::move(options))
{
}

Result<std::unique_ptr<TrafficCounters::Counting>> BpfTrafficCounters::start()
{
    if (!hasKernelsPids(options_.root)) {
        return unexpected(ErrorCode::Unavailable, "in a container the kernel's process numbers are others than ours");
    }
    auto interfaces = std::make_unique<InterfaceTotals>(); // from before the first packet that is counted
    std::string reasons;
    ErrorCode code = ErrorCode::Unavailable;
    for (const std::string& object : options_.objects) {
        auto sockets = BpfTrafficSockets::attach(object, options_.root, runtime_);
        if (sockets) {
            sockets->setBareInterfaces(interfaces->bare());
            return std::unique_ptr<Counting>(std::make_unique<BpfCounting>(std::move(interfaces), std::move(*sockets)));
        }
        code = sockets.error().code;
        reasons += (reasons.empty() ? "" : "; ") + object + ": " + sockets.error().message;
    }
    return unexpected(code, reasons.empty() ? "no BPF program to load" : reasons);
}

} // namespace meridal
