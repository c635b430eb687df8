// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/linux/kernel/Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

union bpf_attr;

namespace meridal {

/// The failure that bpf(2) told with this error number while doing `what`. NotPermitted for a lack of rights.
Unexpected bpfError(const std::string& what, int error);

/// bpf(2) itself: what is not negative, or minus the error number. Repeats what a signal interrupted.
long bpfCall(int command, bpf_attr& attributes);

/// A pointer as bpf(2) takes it.
inline std::uint64_t bpfAddress(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

/// Runs a program of the type syscall with this memory as its context, which the program reads and writes. What the
/// program returned.
Result<std::int32_t> runBpfProgram(int program, std::span<std::byte> context);
template <typename Context>
Result<std::int32_t> runBpfProgram(int program, Context& context)
{
    static_assert(std::is_trivially_copyable_v<Context>);
    return runBpfProgram(program, std::as_writable_bytes(std::span(&context, 1)));
}

/// Attaches a program to `target` (the descriptor of a cgroup; 0 where the type has none) until the descriptor closes.
/// `type` is a bpf_attach_type.
Result<Descriptor> attachBpfProgram(int program, int target, std::uint32_t type);
/// Attaches a tracepoint program to the tracepoint that its source names, until the descriptor closes.
Result<Descriptor> attachBpfTracepoint(int program);
/// Starts an iterator from its link: each read of the descriptor runs the program on and gives what it wrote.
Result<Descriptor> startBpfIterator(int link);

/// One element. Key and value have the sizes that the map was made with. False with errno when it fails.
bool readBpfMap(int map, const void* key, void* value);
bool writeBpfMap(int map, const void* key, const void* value);
bool removeFromBpfMap(int map, const void* key);
/// Several of them, whose keys lie one after another, in one call. Those that are not there are nobody's loss.
void removeFromBpfMap(int map, std::span<const std::byte> keys, std::size_t keySize);

/// Elements of a hash map, as many as there is room for; taken out of it, or only looked at. `position`: where the last call
/// ended, 0 at first. How many; 0 at the end of the map, or when it fails.
struct BpfBatch {
    bool takesOut = false;
    std::uint32_t position = 0;
    bool isFirst = true;
    bool atEnd = false;
};
std::uint32_t readBpfBatch(int map, BpfBatch& batch, void* keys, void* values, std::uint32_t room);
/// All of them, behind those that the vectors hold.
template <typename Key, typename Value>
void readBpfBatches(int map, BpfBatch batch, std::vector<Key>& keys, std::vector<Value>& values)
{
    constexpr std::uint32_t room = 256;
    while (!batch.atEnd) {
        const std::size_t size = keys.size();
        keys.resize(size + room);
        values.resize(size + room);
        const std::uint32_t read = readBpfBatch(map, batch, &keys[size], &values[size], room);
        keys.resize(size + read);
        values.resize(size + read);
    }
}

/// An array map with BPF_F_MMAPABLE, seen without any call. The kernel keeps it as long as it is mapped.
class BpfMapping {
public:
    BpfMapping() = default;
    /// `size` in bytes, whole elements of a multiple of 8 bytes each; to be looked at only.
    static Result<BpfMapping> map(int map, std::size_t size);
    BpfMapping(BpfMapping&& other) noexcept;
    BpfMapping& operator=(BpfMapping&& other) noexcept;
    ~BpfMapping();

    const std::byte* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    const std::byte* data_ = nullptr;
    std::size_t size_ = 0;
};

/// How many processors this machine may ever have: per-CPU maps have as many values, each rounded up to 8 bytes.
std::uint32_t possibleProcessors();

} // namespace meridal
