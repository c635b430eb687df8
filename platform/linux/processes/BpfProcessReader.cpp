// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/BpfProcessReader.h"

#include <cerrno>
#include <fmt/format.h>
#include <linux/bpf.h>
#include <unistd.h>

namespace meridal {

namespace {

/// Lets the programs of an object know where each processor keeps its variables.
Result<void> findOffsets(const BpfObject& object)
{
    BpfPass pass{.wantsMemory = 0, .processors = possibleProcessors(), .number = 0, .processes = 0};
    const auto done = runBpfProgram(object.program("find_offsets"), pass);
    if (!done) {
        return Unexpected{done.error()};
    }
    if (*done != 0) {
        return unexpected(
            ErrorCode::Unavailable, fmt::format("this kernel's per-CPU variables were not found ({})", *done));
    }
    return {};
}

std::span<const BpfProcess> first(const BpfMapping& records, std::uint32_t count)
{
    return {reinterpret_cast<const BpfProcess*>(records.data()), count};
}

} // namespace

Result<BpfProcessWalk::Loaded> BpfProcessWalk::loadFor(std::uint32_t capacity)
{
    auto object = BpfObject::load(
        "process_walk", {{.map = "records", .entries = capacity}, {.map = "offsets", .entries = possibleProcessors()}});
    if (!object) {
        return Unexpected{object.error()};
    }
    if (auto found = findOffsets(*object); !found) {
        return Unexpected{found.error()};
    }
    auto records = BpfMapping::map(object->map("records"), capacity * sizeof(BpfProcess));
    if (!records) {
        return Unexpected{records.error()};
    }
    return Loaded{std::move(*object), std::move(*records), capacity};
}

Result<std::unique_ptr<BpfProcessReader>> BpfProcessWalk::load(std::uint32_t capacity)
{
    auto loaded = loadFor(capacity);
    if (!loaded) {
        return Unexpected{loaded.error()};
    }
    return std::unique_ptr<BpfProcessReader>(new BpfProcessWalk(std::move(*loaded)));
}

Result<std::span<const BpfProcess>> BpfProcessWalk::read(bool wantsMemory)
{
    constexpr int attempts = 4; // each with room for more than there were at the last
    for (int i = 0; i < attempts; ++i) {
        BpfPass pass{.wantsMemory = wantsMemory, .processors = processors_, .number = ++passes_, .processes = 0};
        if (const auto done = runBpfProgram(loaded_.object.program("walk"), pass); !done) {
            return Unexpected{done.error()};
        }
        if (pass.processes <= loaded_.capacity) {
            return first(loaded_.records, pass.processes);
        }
        auto larger = loadFor(pass.processes + pass.processes / 4);
        if (!larger) {
            return Unexpected{larger.error()};
        }
        loaded_ = std::move(*larger);
    }
    return unexpected(ErrorCode::Unavailable, "processes multiply faster than room can be made for them");
}

Result<std::unique_ptr<BpfProcessReader>> BpfProcessDump::load()
{
    auto object = BpfObject::load("process_dump", {{.map = "offsets", .entries = possibleProcessors()}});
    if (!object) {
        return Unexpected{object.error()};
    }
    if (auto found = findOffsets(*object); !found) {
        return Unexpected{found.error()};
    }
    auto link = attachBpfProgram(object->program("dump"), 0, BPF_TRACE_ITER);
    if (!link) {
        return Unexpected{link.error()};
    }
    return std::unique_ptr<BpfProcessReader>(new BpfProcessDump(std::move(*object), std::move(*link)));
}

Result<std::span<const BpfProcess>> BpfProcessDump::read(bool wantsMemory)
{
    constexpr std::size_t piece = 256; // records; the kernel hands out some 32 KiB at a time
    const BpfPass pass{.wantsMemory = wantsMemory, .processors = processors_, .number = 0, .processes = 0};
    const std::uint32_t only = 0;
    if (!writeBpfMap(object_.map("request"), &only, &pass)) {
        return bpfError("asking for processes", errno);
    }
    const auto file = startBpfIterator(link_.get());
    if (!file) {
        return Unexpected{file.error()};
    }
    std::size_t filled = 0; // bytes
    for (;;) {
        if (records_.size() * sizeof(BpfProcess) < filled + piece * sizeof(BpfProcess)) {
            records_.resize(records_.size() * 2 + piece);
        }
        const ssize_t size = ::read(file->get(), reinterpret_cast<std::byte*>(records_.data()) + filled,
            records_.size() * sizeof(BpfProcess) - filled);
        if (size == 0) {
            break;
        }
        if (size < 0 && errno != EINTR && errno != EAGAIN) { // a long stretch without any process is worth a pause
            return bpfError("reading processes", errno);
        }
        filled += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    return std::span<const BpfProcess>(records_.data(), filled / sizeof(BpfProcess));
}

} // namespace meridal
