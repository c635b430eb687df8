// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/host/EndedProcesses.h"
#include "platform/linux/bpf/ended_record.h"
#include "platform/linux/kernel/BpfCalls.h"
#include "platform/linux/kernel/BpfObject.h"
#include "platform/linux/processes/CgroupUnits.h"

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridal {

/// What processes have used by their end, counted in the kernel from attach() on: each is there once, whole, however short it
/// lived. Linux 6.1 and later, tracepoints sched_process_exit and sched_process_free.
class BpfEndedProcesses {
public:
    /// `tick`: ns, in which start times are told.
    static Result<std::unique_ptr<BpfEndedProcesses>> attach(std::shared_ptr<CgroupUnits> units, std::uint64_t tick);

    /// Before each pass over the table: who starts at this time or later, ns since boot, is to be left out of it. Else one that
    /// starts and ends meanwhile would be told as met by nobody, and might be met all the same.
    std::uint64_t beginPass();
    /// After each whole pass.
    void endPass();
    /// Since the last call; valid until the next. They come some hundredths of a second after their ends.
    std::span<const EndedRecord> take();

private:
    struct ByBytes {
        bool operator()(const BpfEndedKey& one, const BpfEndedKey& other) const;
    };

    BpfEndedProcesses(
        BpfObject object, Descriptor exits, Descriptor frees, std::shared_ptr<CgroupUnits> units, std::uint64_t tick);
    EndedRecord recordOf(const BpfEndedKey& key, const BpfEndedSums& sums) const;
    void takePlaces();
    bool isPeriodQuiet() const;
    void takeEnded();
    void takeRest();

    BpfObject object_;
    Descriptor exits_;
    Descriptor frees_;
    std::shared_ptr<CgroupUnits> units_;
    std::uint64_t tick_;
    std::uint64_t beginning_ = 0; ///< of the pass that runs, ns since boot; 0 = not known
    BpfEndedSums rest_ = {};      ///< as read last
    std::uint32_t period_ = 0;    ///< the kernel's programs add to entries of this one only
    /// Of the period before, as told already: a program that had looked at the period before it was raised may still have
    /// added to them.
    std::map<BpfEndedKey, BpfEndedSums, ByBytes> told_;
    std::vector<BpfEndedKey> keys_;
    std::vector<BpfEndedSums> sums_;
    std::unordered_map<std::uint64_t, std::string> paths_; ///< of control groups that somebody has ended in
    std::vector<EndedRecord> records_;
};

} // namespace meridal
