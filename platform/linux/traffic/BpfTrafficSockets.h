// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/linux/kernel/BpfObject.h"
#include "platform/linux/kernel/Descriptor.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace meridal {

class Runtime;

/// The programs that count traffic, attached. They go with this object.
class BpfTrafficSockets {
public:
    /// `object` is "traffic" or one that begins so (platform/linux/bpf). Sockets that are open already are looked
    /// for in all processes. `root` holds proc.
    static Result<BpfTrafficSockets> attach(
        const std::string& object, const std::filesystem::path& root, Runtime& runtime);

    /// Looks once more who has which socket, if bytes of connections that came in wait for that. Only where the kernel
    /// does not tell who sends and receives; takes 1 % of the time at the most.
    void lookAgain();
    /// Indexes of the interfaces whose packets have no link header.
    void setBareInterfaces(const std::vector<std::int32_t>& indexes);
    /// Whether packets are counted; else only what calls move.
    bool seesPackets() const { return seesPackets_; }
    /// Descriptor of the map of sums, valid as long as this object.
    int sums() const { return object_.map("traffic"); }
    int people() const { return object_.map("people"); } ///< likewise, who they are of

private:
    BpfTrafficSockets(BpfObject object, Runtime& runtime) : object_(std::move(object)), runtime_(&runtime) { }

    Result<void> prepare();
    Result<void> attachToGroups(const std::filesystem::path& root);
    Result<void> attachToCalls();
    Result<void> findOpenSockets();
    bool isAwaited() const;
    Result<void> check(const std::filesystem::path& root) const;

    BpfObject object_;
    Runtime* runtime_;
    std::vector<Descriptor> links_;
    Descriptor search_;                        ///< link of the iterator over open files
    std::vector<std::int32_t> bareInterfaces_; ///< as the programs know them
    double searchAt_ = 0;                      ///< s of the clock that cannot step: not before then
    bool seesPackets_ = false;
    bool seesUsers_ = false; ///< hears of who sends and receives
};

} // namespace meridal
