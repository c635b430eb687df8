// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/linux/bpf/process_record.h"
#include "platform/linux/kernel/BpfCalls.h"
#include "platform/linux/kernel/BpfObject.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace meridal {

/// All processes as the kernel has them, out of a BPF program.
class BpfProcessReader {
public:
    virtual ~BpfProcessReader() = default;
    /// One pass, in no particular order. Valid until the next.
    virtual Result<std::span<const BpfProcess>> read(bool wantsMemory) = 0;
};

/// One call a pass, into a mapped array that grows with the number of processes. Linux 6.7 and later.
class BpfProcessWalk final : public BpfProcessReader {
public:
    /// `capacity`: how many processes there is room for at first.
    static Result<std::unique_ptr<BpfProcessReader>> load(std::uint32_t capacity);
    Result<std::span<const BpfProcess>> read(bool wantsMemory) override;

private:
    struct Loaded {
        BpfObject object;
        BpfMapping records;
        std::uint32_t capacity;
    };
    static Result<Loaded> loadFor(std::uint32_t capacity);
    explicit BpfProcessWalk(Loaded loaded) : loaded_(std::move(loaded)), processors_(possibleProcessors()) { }

    Loaded loaded_;
    std::uint32_t processors_;
    std::uint32_t passes_ = 0;
};

/// Through a file, some 200 processes a read. Linux 5.19 and later.
class BpfProcessDump final : public BpfProcessReader {
public:
    static Result<std::unique_ptr<BpfProcessReader>> load();
    Result<std::span<const BpfProcess>> read(bool wantsMemory) override;

private:
    BpfProcessDump(BpfObject object, Descriptor link)
        : object_(std::move(object)), link_(std::move(link)), processors_(possibleProcessors())
    {
    }

    BpfObject object_;
    Descriptor link_;
    std::uint32_t processors_;
    std::vector<BpfProcess> records_;
};

} // namespace meridal
