// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/BpfCalls.h"

#include "platform/linux/kernel/RootFolder.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <linux/bpf.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

bpf_attr emptyAttributes()
{
    bpf_attr attributes;
    std::memset(&attributes, 0, sizeof attributes); // the kernel refuses bytes that it does not know and that are not 0
    return attributes;
}

bool elementCall(int command, int map, const void* key, void* value)
{
    bpf_attr attributes = emptyAttributes();
    attributes.map_fd = static_cast<std::uint32_t>(map);
    attributes.key = bpfAddress(key);
    attributes.value = bpfAddress(value);
    return bpfCall(command, attributes) >= 0;
}

Result<Descriptor> descriptorCall(int command, bpf_attr& attributes, const char* what)
{
    const long descriptor = bpfCall(command, attributes);
    if (descriptor < 0) {
        return bpfError(what, static_cast<int>(-descriptor));
    }
    return Descriptor(static_cast<int>(descriptor));
}

} // namespace

Unexpected bpfError(const std::string& what, int error)
{
    const bool denied = error == EPERM || error == EACCES;
    return unexpected(
        denied ? ErrorCode::NotPermitted : ErrorCode::Unavailable, fmt::format("{}: {}", what, std::strerror(error)));
}

long bpfCall(int command, bpf_attr& attributes)
{
    for (;;) {
        const long result = ::syscall(SYS_bpf, command, &attributes, sizeof attributes);
        if (result >= 0) {
            return result;
        }
        if (errno != EINTR) {
            return -errno;
        }
    }
}

Result<std::int32_t> runBpfProgram(int program, std::span<std::byte> context)
{
    bpf_attr attributes = emptyAttributes();
    attributes.test.prog_fd = static_cast<std::uint32_t>(program);
    attributes.test.ctx_in = bpfAddress(context.data());
    attributes.test.ctx_size_in = static_cast<std::uint32_t>(context.size());
    if (const long failure = bpfCall(BPF_PROG_RUN, attributes); failure < 0) {
        return bpfError("running a BPF program", static_cast<int>(-failure));
    }
    return static_cast<std::int32_t>(attributes.test.retval);
}

Result<Descriptor> attachBpfProgram(int program, int target, std::uint32_t type)
{
    bpf_attr attributes = emptyAttributes();
    attributes.link_create.prog_fd = static_cast<std::uint32_t>(program);
    attributes.link_create.target_fd = static_cast<std::uint32_t>(target);
    attributes.link_create.attach_type = type;
    return descriptorCall(BPF_LINK_CREATE, attributes, "attaching a BPF program");
}

Result<Descriptor> attachBpfTracepoint(int program)
{
    bpf_attr attributes = emptyAttributes();
    attributes.raw_tracepoint.prog_fd = static_cast<std::uint32_t>(program);
    return descriptorCall(BPF_RAW_TRACEPOINT_OPEN, attributes, "attaching a BPF program to a tracepoint");
}

Result<Descriptor> startBpfIterator(int link)
{
    bpf_attr attributes = emptyAttributes();
    attributes.iter_create.link_fd = static_cast<std::uint32_t>(link);
    return descriptorCall(BPF_ITER_CREATE, attributes, "starting a BPF iterator");
}

bool readBpfMap(int map, const void* key, void* value) { return elementCall(BPF_MAP_LOOKUP_ELEM, map, key, value); }

bool writeBpfMap(int map, const void* key, const void* value)
{
    return elementCall(BPF_MAP_UPDATE_ELEM, map, key, const_cast<void*>(value)); // only read by this command
}

bool removeFromBpfMap(int map, const void* key) { return elementCall(BPF_MAP_DELETE_ELEM, map, key, nullptr); }

void removeFromBpfMap(int map, std::span<const std::byte> keys, std::size_t keySize)
{
    if (keys.empty()) {
        return;
    }
    bpf_attr attributes = emptyAttributes();
    attributes.batch.keys = bpfAddress(keys.data());
    attributes.batch.count = static_cast<std::uint32_t>(keys.size() / keySize);
    attributes.batch.map_fd = static_cast<std::uint32_t>(map);
    if (bpfCall(BPF_MAP_DELETE_BATCH, attributes) >= 0) {
        return;
    }
    for (; !keys.empty(); keys = keys.subspan(keySize)) { // it ends at the first that is missing
        removeFromBpfMap(map, keys.data());
    }
}

std::uint32_t readBpfBatch(int map, BpfBatch& batch, void* keys, void* values, std::uint32_t room)
{
    bpf_attr attributes = emptyAttributes();
    std::uint32_t next = 0;
    attributes.batch.in_batch = batch.isFirst ? 0 : bpfAddress(&batch.position);
    attributes.batch.out_batch = bpfAddress(&next);
    attributes.batch.keys = bpfAddress(keys);
    attributes.batch.values = bpfAddress(values);
    attributes.batch.count = room;
    attributes.batch.map_fd = static_cast<std::uint32_t>(map);
    const long failure = bpfCall(batch.takesOut ? BPF_MAP_LOOKUP_AND_DELETE_BATCH : BPF_MAP_LOOKUP_BATCH, attributes);
    batch = {.takesOut = batch.takesOut, .position = next, .isFirst = false, .atEnd = failure < 0};
    return failure == 0 || failure == -ENOENT ? attributes.batch.count : 0; // the latter with the last of them
}

Result<BpfMapping> BpfMapping::map(int map, std::size_t size)
{
    void* data = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, map, 0);
    if (data == MAP_FAILED) {
        return bpfError("mapping a BPF map", errno);
    }
    BpfMapping mapping;
    mapping.data_ = static_cast<const std::byte*>(data);
    mapping.size_ = size;
    return mapping;
}

BpfMapping::BpfMapping(BpfMapping&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0))
{
}

BpfMapping& BpfMapping::operator=(BpfMapping&& other) noexcept
{
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
}

BpfMapping::~BpfMapping()
{
    if (data_) {
        ::munmap(const_cast<std::byte*>(data_), size_);
    }
}

std::uint32_t possibleProcessors()
{
    // Ranges as in "0-3,8-11", ascending: the highest number comes last.
    const std::string text = RootFolder("/").read("sys/devices/system/cpu/possible").value_or("0");
    const auto last = leadingNumber(std::string_view(text).substr(text.find_last_of("-,") + 1)); // npos + 1 is 0
    return static_cast<std::uint32_t>(last.value_or(0) + 1);
}

} // namespace meridal
